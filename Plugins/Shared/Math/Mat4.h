#pragma once

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Vec3.h"
#include "Plugins/Shared/Math/Vec4.h"

namespace Tessaloom::BilateralBlur {

class Quaternion;

/// A 4 x 4 matrix of doubles that acts on column vectors from the left, v' = M v.
///
/// Storage is column-major: row r of column c is `m[4c + r]`, so the translation is in m[12] to m[14].
/// In a product A B the factor B acts first on a vector. The operations that compose in place (`mult`,
/// `translate`, `scale`, `rotate`, ...) multiply on the right, this = this x T, so that T acts first, in the
/// object's local frame; those that begin with `set` overwrite. The frame is right-handed and all angles are
/// radians: a positive angle turns counter-clockwise for an eye at the positive end of the axis. Clip space
/// is OpenGL's: the camera looks down negative z, and depth runs from -1 at the near plane to +1 at the far
/// one.
///
/// Nothing here throws, allocates or tests an index; division by zero follows IEEE arithmetic. Mutators
/// return nothing. Several operations that change nothing are not declared const; they can't be called on a
/// constant.
class Mat4 {
public:
    /// The 16 elements, column after column.
    double m[16];

    // Construction and assignment

    /// The identity.
    Mat4() : Mat4(true) {}

    /// True: the identity. False: all 16 elements 0, m[15] included.
    explicit Mat4(bool isIdentity);

    /// Refused: a pointer, or 0, would otherwise turn into the `bool` of the constructor above.
    explicit Mat4(const void*) = delete;

    /// From sixteen numbers. False: they come row by row. True: in storage order, column by column.
    /// The flag has no default here or below, since its sense differs between doubles and vectors.
    Mat4(double a0, double a1, double a2, double a3, double a4, double a5, double a6, double a7, double a8,
         double a9, double a10, double a11, double a12, double a13, double a14, double a15,
         bool storageOrder);

    /// From an array of sixteen numbers. False: they come row by row. True: in storage order.
    Mat4(double* elements, bool storageOrder);

    /// From four vectors. False: each is a column. True: each is a row.
    Mat4(const Vec4& a, const Vec4& b, const Vec4& c, const Vec4& d, bool rows);

    /// Overwrites all elements, row by row: the first four numbers are row 0.
    void set(double a0, double a1, double a2, double a3, double a4, double a5, double a6, double a7,
             double a8, double a9, double a10, double a11, double a12, double a13, double a14, double a15);

    /// Becomes the identity.
    void setIdentity() { *this = Mat4(true); }

    /// All 16 elements become 0.
    void setZero() { *this = Mat4(false); }

    /// A new identity matrix.
    static Mat4 identity() { return Mat4(true); }

    // Comparison, rows and columns. Row and column numbers are 0 to 3 and not bounds-checked.

    /// Each element within `kEpsilon` of the other's. A NaN on either side gives false.
    bool operator==(const Mat4& other) const;

    /// Row `row`, from left to right.
    Vec4 getRow(int row) const;

    /// Column `column`, from top to bottom.
    Vec4 getColumn(int column) const;

    /// Overwrites one row.
    void setRow(int row, const Vec4& values);

    /// Overwrites one column.
    void setColumn(int column, const Vec4& values);

    /// Transposes this matrix in place.
    void setTranspose();

    /// Writes the transpose to `out`, which may be this matrix.
    void transpose(Mat4& out);

    // Arithmetic

    /// this = this + other, per element.
    void add(const Mat4& other) { add(*this, other, *this); }

    /// this = this - other, per element.
    void subtract(const Mat4& other) { subtract(*this, other, *this); }

    /// out = a + b, per element. `out` may be `a` or `b`.
    static void add(const Mat4& a, const Mat4& b, Mat4& out);

    /// out = a - b, per element. `out` may be `a` or `b`.
    static void subtract(const Mat4& a, const Mat4& b, Mat4& out);

    /// this + other, per element.
    Mat4 operator+(const Mat4& other);

    /// this - other, per element.
    Mat4 operator-(const Mat4& other);

    /// All 16 elements times `factor`, the bottom row too.
    Mat4 operator*(double factor);

    /// The product this x other: `other` acts first on a vector.
    Mat4 operator*(const Mat4& other);

    /// this = this x other. The other way round from `Affine::multiply`.
    void mult(const Mat4& other) { mult(*this, other, *this); }

    /// out = a x b. `out` may be `a` or `b`.
    static void mult(const Mat4& a, const Mat4& b, Mat4& out);

    // Acting on vectors

    /// M v over all four components.
    [[nodiscard]] Vec4 mult(const Vec4& v);
    Vec4 operator*(const Vec4& v) { return mult(v); }

    /// The first three components of M (x, y, z, 1), with no division by the fourth.
    [[nodiscard]] Vec3 mult(const Vec3& v);
    Vec3 operator*(const Vec3& v) { return mult(v); }

    /// The first three components of M (x, y, z, 0): the translation has no effect.
    [[nodiscard]] Vec3 multWithoutTranslate(const Vec3& v);

    /// The first three components of M (x, y, z, 1), each times the reciprocal of the fourth.
    [[nodiscard]] Vec3 multAndProject(const Vec3& v);

    // Transform setters. All 16 elements are written, except by `setLookAt`.

    /// A translation.
    void setTranslate(const Vec3& offset) { setTranslate(offset.x, offset.y, offset.z); }
    void setTranslate(double x, double y, double z);

    /// The diagonal (x, y, z, 1).
    void setScale(const Vec3& factors) { setScale(factors.x, factors.y, factors.z); }
    void setScale(double x, double y, double z);

    /// A rotation about an axis through the origin. The axis need not have unit length; the zero axis counts
    /// as the x axis. Rodrigues' rotation formula.
    void setRotation(double angle, const Vec3& axis);
    void setRotation(double angle, double x, double y, double z) { setRotation(angle, Vec3(x, y, z)); }

    /// A rotation about the x axis: pi/2 takes y to z.
    void setXRotation(double angle);

    /// A rotation about the y axis: pi/2 takes z to x.
    void setYRotation(double angle);

    /// A rotation about the z axis: pi/2 takes x to y.
    void setZRotation(double angle);

    /// The projection of a symmetric frustum, as `gluPerspective` defines it: `fov` is the full vertical
    /// angle, `aspect` is width / height, `near` and `far` are distances.
    void setPerspective(double fov, double aspect, double near, double far);

    /// The projection of a frustum, as `glFrustum` defines it. An empty volume gives infinities or NaN.
    void setFrustum(double left, double right, double bottom, double top, double near, double far);

    /// The parallel projection of a box, as `glOrtho` defines it, but with `top` ahead of `bottom`.
    void setOrtho(double left, double right, double top, double bottom, double near, double far);

    /// Turns the upper left 3 x 3 block into the orientation of a camera at `eye` that looks at `target`,
    /// taking the camera's axes to world axes. This is no view matrix, whose rotation would be the inverse,
    /// and it adds no translation: m[3], m[7], m[11] and m[12] to m[15] keep their values.
    void setLookAt(Vec3 eye, Vec3 target, Vec3 up);
    void setLookAt(double eyeX, double eyeY, double eyeZ, double targetX, double targetY, double targetZ,
                   double upX, double upY, double upZ);

    // Composing in place: this = this x T, with T as the setter of the same kind builds it.
    // The w of a `Vec4` is ignored.

    /// Appends a translation on the right. A bottom row other than (0, 0, 0, 1) takes part: m[15] changes
    /// too.
    void translate(double x, double y, double z);
    void translate(const Vec3& offset) { translate(offset.x, offset.y, offset.z); }
    void translate(const Vec4& offset) { translate(offset.x, offset.y, offset.z); }

    /// Appends a scale on the right.
    void scale(double x, double y, double z);
    void scale(const Vec3& factors) { scale(factors.x, factors.y, factors.z); }
    void scale(const Vec4& factors) { scale(factors.x, factors.y, factors.z); }

    /// Appends a rotation on the right, with the axis as in `setRotation`.
    void rotate(double angle, double x, double y, double z) { rotate(angle, Vec3(x, y, z)); }
    void rotate(double angle, const Vec3& axis);
    void rotate(double angle, const Vec4& axis) { rotate(angle, axis.getVec3()); }

    /// Appends a rotation about the x axis on the right.
    void rotateX(double angle);

    /// Appends a rotation about the y axis on the right.
    void rotateY(double angle);

    /// Appends a rotation about the z axis on the right.
    void rotateZ(double angle);

    // Inverse

    /// The determinant of all 16 elements.
    double determinant();

    /// Writes the inverse to `out`, which may be this matrix, and returns true. A determinant that comes out
    /// as exactly 0 gives the identity and false. Rounding decides which it is: a singular matrix may come
    /// out with a tiny determinant and so with an inverse of huge elements, and a regular one of tiny
    /// elements may underflow to 0.
    bool getInverse(Mat4& out) const;

    // Composition from position, rotation and scale, and the way back

    /// Becomes T(position) R S. `rotation` should have unit length.
    void compose(const Vec3& position, const Quaternion& rotation, const Vec3& scale);

    /// Becomes T(position) R S T(-anchor): the anchor lands on `position`, turned and scaled about itself.
    void compose(const Vec3& anchor, const Vec3& position, const Quaternion& rotation, const Vec3& scale);

    /// Takes a matrix without skew apart into T(position) R S. A mirrored matrix gets its negative factor in
    /// `scale.x`, whichever axis was mirrored. An axis of length 0 counts as 1e-06 long, and `rotation` then
    /// need not be one.
    void decompose(Vec3& position, Quaternion& rotation, Vec3& scale);

    /// The same for T(position) R S T(-anchor): `position` is where the anchor lands. `anchor` may be one of
    /// the outputs.
    void decompose(const Vec3& anchor, Vec3& position, Quaternion& rotation, Vec3& scale);

    /// Replaces the translation, and nothing else.
    void position(const Vec3& position);

    /// The length of the longest of the first three columns, over their upper three rows.
    double getMaxScaleOnAxis() const;

    // Conversions

    /// Becomes the rotation of a quaternion, which is used without being normalised. All 16 elements are
    /// written.
    void setWithQuaternion(const Quaternion& q);

    /// Becomes a plane transform that leaves z alone. All 16 elements are written.
    void setWithAffine(const Affine& affine);

    /// The plane transform of x and y; the z row and column are dropped without a test.
    Affine getAffine() const;

    /// The change of frame from a layer of `width` x `height` pixels (origin in the top left corner, y down)
    /// to the GL frame (origin in the middle, y up, z reversed). Pixels stay pixels; a projection has to
    /// follow.
    static Mat4 getAEToGLConversionMatrix(double width, double height);
};

} // namespace Tessaloom::BilateralBlur
