#include "Plugins/Shared/Math/Vec3.h"

#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/Quaternion.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

void Vec3::set(int index, double value) {
    if (index == 0)
        x = value;
    else if (index == 1)
        y = value;
    else
        z = value;
}

void Vec3::fromArray(const double* array, int offset) {
    set(array[offset], array[offset + 1], array[offset + 2]);
}

void Vec3::toArray(double* array, int offset) {
    array[offset] = x;
    array[offset + 1] = y;
    array[offset + 2] = z;
}

bool Vec3::equal(const Vec3& other, double tolerance) const {
    return equalWithin(x, other.x, tolerance) && equalWithin(y, other.y, tolerance) &&
           equalWithin(z, other.z, tolerance);
}

std::int32_t Vec3::largestAbsComponent() const {
    if (absValue(x) > absValue(y))
        return absValue(x) > absValue(z) ? 0 : 2;
    return absValue(y) > absValue(z) ? 1 : 2;
}

double Vec3::angleBetween(const Vec3& other) const {
    return std::acos(dot(other) / (length() * other.length()));
}

void Vec3::setLength(double newLength) {
    if (isZero())
        x = newLength;
    else
        mult(newLength / length());
}

Vec3 Vec3::floor() {
    return {std::floor(x), std::floor(y), std::floor(z)};
}

void Vec3::clamp(Vec3 low, Vec3 high) {
    x = clampValue(x, low.x, high.x);
    y = clampValue(y, low.y, high.y);
    z = clampValue(z, low.z, high.z);
}

Vec3 Vec3::lerp(Vec3 a, Vec3 b, double t) {
    return b * t + a * (1.0 - t);
}

void Vec3::ortho(const Vec3& other) {
    const std::int32_t largest = largestAbsComponent();
    Vec3 axis;
    axis.set(largest == 0 ? 2 : largest - 1, 1.0);
    *this = other.cross(axis);
    normalize();
}

Vec3 Vec3::rotationalDifference(const Vec3& other) const {
    return {cyclicDifference(x, other.x, 0.0), cyclicDifference(y, other.y, 0.0),
            cyclicDifference(z, other.z, 0.0)};
}

void Vec3::applyMatrix4(const Mat4& matrix) {
    const double* const m = matrix.m;
    set(m[0] * x + m[4] * y + m[8] * z + m[12], m[1] * x + m[5] * y + m[9] * z + m[13],
        m[2] * x + m[6] * y + m[10] * z + m[14]);
}

void Vec3::applyProjection(const Mat4& matrix) {
    const double* const m = matrix.m;
    const double d = 1.0 / (m[3] * x + m[7] * y + m[11] * z + m[15]);
    applyMatrix4(matrix);
    mult(d);
}

void Vec3::applyQuaternion(const Quaternion& rotation) {
    const double qx = rotation.x, qy = rotation.y, qz = rotation.z, qw = rotation.w;
    const double ix = qw * x + qy * z - qz * y;
    const double iy = qw * y + qz * x - qx * z;
    const double iz = qw * z + qx * y - qy * x;
    const double iw = -qx * x - qy * y - qz * z;
    set(ix * qw - iw * qx - iy * qz + iz * qy, iy * qw - iw * qy - iz * qx + ix * qz,
        iz * qw - iw * qz - ix * qy + iy * qx);
}

void Vec3::transformDirection(const Mat4& matrix) {
    const double* const m = matrix.m;
    set(m[0] * x + m[4] * y + m[8] * z, m[1] * x + m[5] * y + m[9] * z, m[2] * x + m[6] * y + m[10] * z);
    normalize();
}

void Vec3::setFromMatrixPosition(const Mat4& matrix) {
    setFromMatrixColumn(matrix, 3);
}

void Vec3::setFromMatrixColumn(const Mat4& matrix, int column) {
    fromArray(matrix.m, 4 * column);
}

} // namespace Tessaloom::BilateralBlur
