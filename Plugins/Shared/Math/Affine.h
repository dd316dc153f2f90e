#pragma once

#include "Plugins/Shared/Math/Vec2.h"

namespace Tessaloom::BilateralBlur {

/// A two-dimensional affine transform: x' = a x + c y + tx, y' = b x + d y + ty. Angles are degrees, and a
/// positive one turns the x axis towards the y axis. Nothing throws.
///
/// In a product A B, B acts first on a point. Note the directions: multiply(other) makes this object
/// other x this, so its old transform acts first; premultiply and the composing operations (translate, scale,
/// skewX, skewY, rotate) make it this x other, so the other acts first. Mat4::mult runs the other way.
class Affine {
public:
    /// The identity.
    Affine() : Affine(true) {}
    /// True for the identity, false for six zeros.
    explicit Affine(bool identity) : Affine(identity ? 1.0 : 0.0, 0.0, 0.0, identity ? 1.0 : 0.0, 0.0, 0.0) {}
    /// Column by column, unlike the order of the elements in `m`.
    Affine(double a, double b, double c, double d, double tx, double ty) : m{a, c, tx, b, d, ty} {}

    /// Refused: a pointer would otherwise turn into the `bool` of the constructor above.
    explicit Affine(const void*) = delete;

    /// Whether each element differs by at most kEpsilon.
    bool operator==(const Affine& other) const;

    /// Column by column, like the constructor.
    void set(double a, double b, double c, double d, double tx, double ty);
    /// Scales, then turns by `degrees`, both about `anchor`, and brings the anchor to `position`.
    void set(Vec2 anchor, Vec2 position, Vec2 scale, double degrees);
    /// x' = x + tx, y' = y + ty.
    void setTranslate(double tx, double ty) { set(1.0, 0.0, 0.0, 1.0, tx, ty); }
    /// x' = sx x, y' = sy y.
    void setScale(double sx, double sy) { set(sx, 0.0, 0.0, sy, 0.0, 0.0); }
    /// x' = x + tan(degrees) y, y' = y.
    void setSkewX(double degrees);
    /// x' = x, y' = tan(degrees) x + y.
    void setSkewY(double degrees);
    /// x' = cos(degrees) x - sin(degrees) y, y' = sin(degrees) x + cos(degrees) y.
    void setRotate(double degrees);

    /// this = this x T, with T as the setter of the same kind builds it: T acts before this object's old
    /// transform.
    void translate(double tx, double ty);
    void scale(double sx, double sy);
    void skewX(double degrees);
    void skewY(double degrees);
    void rotate(double degrees);
    /// this = other x this: `other` acts after this object's old transform.
    void multiply(const Affine& other);
    /// this = this x other: `other` acts before this object's old transform.
    void premultiply(const Affine& other);

    /// Writes the inverse, which may be this very object, and returns true. A determinant between -1e-06 and
    /// 1e-06 counts as singular: false, with `out` untouched.
    bool inverse(Affine& out) const;
    /// The inverse, or the identity where inverse() answers false.
    [[nodiscard]] Affine getInverse() const;
    /// The mean length of the two rows of the linear part, rounded to four decimals in single precision.
    double averageScale() const;

    /// Transforms a point in place.
    void transform(Vec2& point) const { transform(point.x, point.y); }
    /// The transformed point.
    [[nodiscard]] Vec2 getTransform(const Vec2& point) const;
    /// Transforms (x, y) into what the two pointers name.
    void transform(double x, double y, double* outX, double* outY) const;
    /// Transforms a point in place.
    void transform(double& x, double& y) const { transform(x, y, &x, &y); }

    /// Row by row: a, c, tx, b, d, ty.
    double m[6];
};

inline Vec2 Affine::getTransform(const Vec2& point) const {
    return {m[0] * point.x + m[1] * point.y + m[2], m[3] * point.x + m[4] * point.y + m[5]};
}

inline void Affine::transform(double x, double y, double* outX, double* outY) const {
    const Vec2 moved = getTransform(Vec2(x, y));
    *outX = moved.x;
    *outY = moved.y;
}

} // namespace Tessaloom::BilateralBlur
