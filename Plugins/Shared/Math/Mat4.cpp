#include "Plugins/Shared/Math/Mat4.h"

#include "Plugins/Shared/Math/Float.h"
#include "Plugins/Shared/Math/Quaternion.h"
#include "Plugins/Shared/Math/SineCosine.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

/// Replaces a length of 0, so that it can be divided by.
constexpr double kVanishedScale = 1e-06;

/// out[0..3] = M (x, y, z, w), each sum from left to right.
inline void transformColumn(const double* m, const double* v, double* out) {
    const double x = v[0], y = v[1], z = v[2], w = v[3];
    out[0] = m[0] * x + m[4] * y + m[8] * z + m[12] * w;
    out[1] = m[1] * x + m[5] * y + m[9] * z + m[13] * w;
    out[2] = m[2] * x + m[6] * y + m[10] * z + m[14] * w;
    out[3] = m[3] * x + m[7] * y + m[11] * z + m[15] * w;
}

/// The 2 x 2 minors of two neighbouring rows, named by their columns: what the 3 x 3 cofactors of the other
/// two rows share.
struct RowPairMinors {
    double c01, c02, c03, c12, c13, c23;

    /// Of rows `row` and `row + 1`.
    RowPairMinors(const double* m, int row)
        : c01(minor(m + row, 0, 4)),
          c02(minor(m + row, 0, 8)),
          c03(minor(m + row, 0, 12)),
          c12(minor(m + row, 4, 8)),
          c13(minor(m + row, 4, 12)),
          c23(minor(m + row, 8, 12)) {}

    static double minor(const double* m, int left, int right) {
        return m[left] * m[right + 1] - m[left + 1] * m[right];
    }
};

} // namespace

// Construction and assignment

Mat4::Mat4(bool isIdentity) : m{} {
    if (isIdentity)
        m[0] = m[5] = m[10] = m[15] = 1.0;
}

Mat4::Mat4(double a0, double a1, double a2, double a3, double a4, double a5, double a6, double a7, double a8,
           double a9, double a10, double a11, double a12, double a13, double a14, double a15,
           bool storageOrder)
    : m{a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15} {
    if (!storageOrder)
        setTranspose();
}

Mat4::Mat4(double* elements, bool storageOrder) {
    std::copy_n(elements, 16, m);
    if (!storageOrder)
        setTranspose();
}

Mat4::Mat4(const Vec4& a, const Vec4& b, const Vec4& c, const Vec4& d, bool rows)
    : m{a.x, a.y, a.z, a.w, b.x, b.y, b.z, b.w, c.x, c.y, c.z, c.w, d.x, d.y, d.z, d.w} {
    if (rows)
        setTranspose();
}

void Mat4::set(double a0, double a1, double a2, double a3, double a4, double a5, double a6, double a7,
               double a8, double a9, double a10, double a11, double a12, double a13, double a14, double a15) {
    *this = Mat4(a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, false);
}

// Comparison, rows and columns

bool Mat4::operator==(const Mat4& other) const {
    return std::equal(m, m + 16, other.m, [](double a, double b) { return equalWithin(a, b, kEpsilon); });
}

Vec4 Mat4::getRow(int row) const {
    return Vec4(m[row], m[row + 4], m[row + 8], m[row + 12]);
}

Vec4 Mat4::getColumn(int column) const {
    const double* const top = m + 4 * column;
    return Vec4(top[0], top[1], top[2], top[3]);
}

void Mat4::setRow(int row, const Vec4& values) {
    m[row] = values.x;
    m[row + 4] = values.y;
    m[row + 8] = values.z;
    m[row + 12] = values.w;
}

void Mat4::setColumn(int column, const Vec4& values) {
    double* const top = m + 4 * column;
    top[0] = values.x;
    top[1] = values.y;
    top[2] = values.z;
    top[3] = values.w;
}

void Mat4::setTranspose() {
    for (int column = 1; column < 4; ++column)
        for (int row = 0; row < column; ++row)
            std::swap(m[4 * column + row], m[4 * row + column]);
}

void Mat4::transpose(Mat4& out) {
    out = *this;
    out.setTranspose();
}

// Arithmetic

void Mat4::add(const Mat4& a, const Mat4& b, Mat4& out) {
    std::transform(a.m, a.m + 16, b.m, out.m, [](double left, double right) { return left + right; });
}

void Mat4::subtract(const Mat4& a, const Mat4& b, Mat4& out) {
    std::transform(a.m, a.m + 16, b.m, out.m, [](double left, double right) { return left - right; });
}

Mat4 Mat4::operator+(const Mat4& other) {
    Mat4 sum(*this);
    sum.add(other);
    return sum;
}

Mat4 Mat4::operator-(const Mat4& other) {
    Mat4 difference(*this);
    difference.subtract(other);
    return difference;
}

Mat4 Mat4::operator*(double factor) {
    Mat4 scaled(*this);
    for (double& element : scaled.m)
        element *= factor;
    return scaled;
}

Mat4 Mat4::operator*(const Mat4& other) {
    Mat4 product(*this);
    product.mult(other);
    return product;
}

void Mat4::mult(const Mat4& a, const Mat4& b, Mat4& out) {
    // `out` may be `a` or `b`, so it takes nothing until the whole product is there.
    double product[16];
    transformColumn(a.m, b.m, product);
    transformColumn(a.m, b.m + 4, product + 4);
    transformColumn(a.m, b.m + 8, product + 8);
    transformColumn(a.m, b.m + 12, product + 12);
    std::copy_n(product, 16, out.m);
}

// Acting on vectors

Vec4 Mat4::mult(const Vec4& v) {
    const double in[4] = {v.x, v.y, v.z, v.w};
    double out[4];
    transformColumn(m, in, out);
    return Vec4(out[0], out[1], out[2], out[3]);
}

Vec3 Mat4::mult(const Vec3& v) {
    return mult(Vec4(v, 1.0)).getVec3();
}

Vec3 Mat4::multWithoutTranslate(const Vec3& v) {
    return Vec3(m[0] * v.x + m[4] * v.y + m[8] * v.z, m[1] * v.x + m[5] * v.y + m[9] * v.z,
                m[2] * v.x + m[6] * v.y + m[10] * v.z);
}

Vec3 Mat4::multAndProject(const Vec3& v) {
    const Vec4 clip = mult(Vec4(v, 1.0));
    return clip.getVec3() * (1.0 / clip.w);
}

// Transform setters

void Mat4::setTranslate(double x, double y, double z) {
    setIdentity();
    position(Vec3(x, y, z));
}

void Mat4::setScale(double x, double y, double z) {
    setIdentity();
    m[0] = x;
    m[5] = y;
    m[10] = z;
}

void Mat4::setRotation(double angle, const Vec3& axis) {
    Vec3 unit(axis);
    unit.normalize();
    const double x = unit.x, y = unit.y, z = unit.z;
    const auto [s, c] = sineCosine(angle);
    const double t = 1.0 - c;
    set(t * x * x + c, t * x * y - s * z, t * x * z + s * y, 0.0, //
        t * x * y + s * z, t * y * y + c, t * y * z - s * x, 0.0, //
        t * x * z - s * y, t * y * z + s * x, t * z * z + c, 0.0, //
        0.0, 0.0, 0.0, 1.0);
}

void Mat4::setXRotation(double angle) {
    const auto [s, c] = sineCosine(angle);
    setIdentity();
    m[5] = c;
    m[6] = s;
    m[9] = -s;
    m[10] = c;
}

void Mat4::setYRotation(double angle) {
    const auto [s, c] = sineCosine(angle);
    setIdentity();
    m[0] = c;
    m[2] = -s;
    m[8] = s;
    m[10] = c;
}

void Mat4::setZRotation(double angle) {
    const auto [s, c] = sineCosine(angle);
    setIdentity();
    m[0] = c;
    m[1] = s;
    m[4] = -s;
    m[5] = c;
}

void Mat4::setPerspective(double fov, double aspect, double near, double far) {
    const double f = 1.0 / std::tan(fov * 0.5);
    setZero();
    m[0] = f / aspect;
    m[5] = f;
    m[10] = (near + far) / (near - far);
    m[11] = -1.0;
    m[14] = 2.0 * far * near / (near - far);
}

void Mat4::setFrustum(double left, double right, double bottom, double top, double near, double far) {
    setZero();
    m[0] = 2.0 * near / (right - left);
    m[5] = 2.0 * near / (top - bottom);
    m[8] = (left + right) / (right - left);
    m[9] = (bottom + top) / (top - bottom);
    m[10] = -(near + far) / (far - near);
    m[11] = -1.0;
    m[14] = -2.0 * far * near / (far - near);
}

void Mat4::setOrtho(double left, double right, double top, double bottom, double near, double far) {
    setIdentity();
    m[0] = 2.0 / (right - left);
    m[5] = 2.0 / (top - bottom);
    m[10] = -2.0 / (far - near);
    m[12] = -(left + right) / (right - left);
    m[13] = -(top + bottom) / (top - bottom);
    m[14] = -(near + far) / (far - near);
}

void Mat4::setLookAt(Vec3 eye, Vec3 target, Vec3 up) {
    Vec3 zAxis = eye - target;
    zAxis.normalize();
    Vec3 xAxis = up.cross(zAxis);
    xAxis.normalize();
    Vec3 yAxis = zAxis.cross(xAxis);
    xAxis.toArray(m, 0);
    yAxis.toArray(m, 4);
    zAxis.toArray(m, 8);
}

void Mat4::setLookAt(double eyeX, double eyeY, double eyeZ, double targetX, double targetY, double targetZ,
                     double upX, double upY, double upZ) {
    setLookAt(Vec3(eyeX, eyeY, eyeZ), Vec3(targetX, targetY, targetZ), Vec3(upX, upY, upZ));
}

// Composing in place

void Mat4::translate(double x, double y, double z) {
    for (int row = 0; row < 4; ++row)
        m[12 + row] = m[row] * x + m[4 + row] * y + m[8 + row] * z + m[12 + row];
}

void Mat4::scale(double x, double y, double z) {
    for (int row = 0; row < 4; ++row) {
        m[row] *= x;
        m[4 + row] *= y;
        m[8 + row] *= z;
    }
}

void Mat4::rotate(double angle, const Vec3& axis) {
    Mat4 rotation;
    rotation.setRotation(angle, axis);
    mult(rotation);
}

void Mat4::rotateX(double angle) {
    Mat4 rotation;
    rotation.setXRotation(angle);
    mult(rotation);
}

void Mat4::rotateY(double angle) {
    Mat4 rotation;
    rotation.setYRotation(angle);
    mult(rotation);
}

void Mat4::rotateZ(double angle) {
    Mat4 rotation;
    rotation.setZRotation(angle);
    mult(rotation);
}

// Inverse

double Mat4::determinant() {
    const RowPairMinors top(m, 0);
    const double cofactor0 = -m[6] * top.c23 + m[10] * top.c13 - m[14] * top.c12;
    const double cofactor1 = m[2] * top.c23 - m[10] * top.c03 + m[14] * top.c02;
    const double cofactor2 = -m[2] * top.c13 + m[6] * top.c03 - m[14] * top.c01;
    const double cofactor3 = m[2] * top.c12 - m[6] * top.c02 + m[10] * top.c01;
    return m[3] * cofactor0 + m[7] * cofactor1 + m[11] * cofactor2 + m[15] * cofactor3;
}

bool Mat4::getInverse(Mat4& out) const {
    // Laplace expansion by complementary minors: every cofactor of the upper two rows is made of the minors
    // of the lower two, and the other way round.
    const RowPairMinors top(m, 0), bottom(m, 2);
    const double cofactor0 = m[5] * bottom.c23 - m[9] * bottom.c13 + m[13] * bottom.c12;
    const double cofactor1 = -m[4] * bottom.c23 + m[8] * bottom.c13 - m[12] * bottom.c12;
    const double cofactor2 = m[7] * top.c23 - m[11] * top.c13 + m[15] * top.c12;
    const double cofactor3 = -m[6] * top.c23 + m[10] * top.c13 - m[14] * top.c12;
    const double det = m[0] * cofactor0 + m[1] * cofactor1 + m[2] * cofactor2 + m[3] * cofactor3;
    if (det == 0.0) {
        out.setIdentity();
        return false;
    }
    const double r = 1.0 / det;
    out.set(cofactor0 * r, cofactor1 * r, cofactor2 * r, cofactor3 * r,
            (-m[1] * bottom.c23 + m[9] * bottom.c03 - m[13] * bottom.c02) * r,
            (m[0] * bottom.c23 - m[8] * bottom.c03 + m[12] * bottom.c02) * r,
            (-m[3] * top.c23 + m[11] * top.c03 - m[15] * top.c02) * r,
            (m[2] * top.c23 - m[10] * top.c03 + m[14] * top.c02) * r,
            (m[1] * bottom.c13 - m[5] * bottom.c03 + m[13] * bottom.c01) * r,
            (-m[0] * bottom.c13 + m[4] * bottom.c03 - m[12] * bottom.c01) * r,
            (m[3] * top.c13 - m[7] * top.c03 + m[15] * top.c01) * r,
            (-m[2] * top.c13 + m[6] * top.c03 - m[14] * top.c01) * r,
            (-m[1] * bottom.c12 + m[5] * bottom.c02 - m[9] * bottom.c01) * r,
            (m[0] * bottom.c12 - m[4] * bottom.c02 + m[8] * bottom.c01) * r,
            (-m[3] * top.c12 + m[7] * top.c02 - m[11] * top.c01) * r,
            (m[2] * top.c12 - m[6] * top.c02 + m[10] * top.c01) * r);
    return true;
}

// Composition from position, rotation and scale, and the way back

void Mat4::compose(const Vec3& position, const Quaternion& rotation, const Vec3& scale) {
    setWithQuaternion(rotation);
    this->scale(scale);
    this->position(position);
}

void Mat4::compose(const Vec3& anchor, const Vec3& position, const Quaternion& rotation, const Vec3& scale) {
    const Vec3 scaledAnchor = anchor * scale;
    Mat4 translation;
    translation.setTranslate(position);
    setWithQuaternion(rotation);
    mult(translation, *this, *this);
    translate(scaledAnchor.negate());
    const double factors[3] = {scale.x, scale.y, scale.z};
    for (int column = 0; column < 3; ++column) {
        if (factors[column] != 1.0)
            for (int row = 0; row < 3; ++row)
                m[4 * column + row] *= factors[column];
    }
}

void Mat4::decompose(Vec3& position, Quaternion& rotation, Vec3& scale) {
    double lengths[3];
    for (int column = 0; column < 3; ++column)
        lengths[column] = getColumn(column).getVec3().length();
    if (determinant() < 0.0)
        lengths[0] = -lengths[0];
    Mat4 unscaled(*this);
    for (int column = 0; column < 3; ++column) {
        if (lengths[column] == 0.0)
            lengths[column] = kVanishedScale;
        const double reciprocal = 1.0 / lengths[column];
        for (int row = 0; row < 3; ++row)
            unscaled.m[4 * column + row] *= reciprocal;
    }
    position.set(m[12], m[13], m[14]);
    rotation.setWithMat4(unscaled);
    scale.set(lengths[0], lengths[1], lengths[2]);
}

void Mat4::decompose(const Vec3& anchor, Vec3& position, Quaternion& rotation, Vec3& scale) {
    // Taken up first, since `anchor` may be one of the outputs.
    const Vec3 offset = multWithoutTranslate(anchor);
    decompose(position, rotation, scale);
    position.add(offset);
}

void Mat4::position(const Vec3& position) {
    m[12] = position.x;
    m[13] = position.y;
    m[14] = position.z;
}

double Mat4::getMaxScaleOnAxis() const {
    const double x = m[0] * m[0] + m[1] * m[1] + m[2] * m[2];
    const double y = m[4] * m[4] + m[5] * m[5] + m[6] * m[6];
    const double z = m[8] * m[8] + m[9] * m[9] + m[10] * m[10];
    return std::sqrt(std::max({x, y, z}));
}

// Conversions

void Mat4::setWithQuaternion(const Quaternion& q) {
    const double x = q.x, y = q.y, z = q.z, w = q.w;
    set(1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y - w * z), 2.0 * (x * z + w * y), 0.0, //
        2.0 * (x * y + w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z - w * x), 0.0, //
        2.0 * (x * z - w * y), 2.0 * (y * z + w * x), 1.0 - 2.0 * (x * x + y * y), 0.0, //
        0.0, 0.0, 0.0, 1.0);
}

void Mat4::setWithAffine(const Affine& affine) {
    const double* const f = affine.m;
    set(f[0], f[1], 0.0, f[2], //
        f[3], f[4], 0.0, f[5], //
        0.0, 0.0, 1.0, 0.0,    //
        0.0, 0.0, 0.0, 1.0);
}

Affine Mat4::getAffine() const {
    return Affine(m[0], m[1], m[4], m[5], m[12], m[13]);
}

Mat4 Mat4::getAEToGLConversionMatrix(double width, double height) {
    return Mat4(1.0, 0.0, 0.0, -0.5 * width,  //
                0.0, -1.0, 0.0, 0.5 * height, //
                0.0, 0.0, -1.0, 0.0,          //
                0.0, 0.0, 0.0, 1.0, false);
}

} // namespace Tessaloom::BilateralBlur
