#include "Plugins/Shared/Math/Vec3.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

void Vec3::set(int index, double value) {
    if (index == 0) {
        x = value;
    } else if (index == 1) {
        y = value;
    } else {
        z = value;
    }
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
    if (absValue(x) > absValue(y)) {
        return absValue(x) > absValue(z) ? 0 : 2;
    }
    return absValue(y) > absValue(z) ? 1 : 2;
}

Vec3 Vec3::cross(const Vec3& other) const {
    return {y * other.z - z * other.y, z * other.x - x * other.z, x * other.y - y * other.x};
}

double Vec3::angleBetween(const Vec3& other) const {
    return std::acos(dot(other) / (length() * other.length()));
}

double Vec3::length() const {
    return std::sqrt(lengthSquare());
}

void Vec3::setLength(double newLength) {
    if (isZero()) {
        x = newLength;
    } else {
        mult(newLength / length());
    }
}

Vec3 Vec3::floor() {
    return {std::floor(x), std::floor(y), std::floor(z)};
}

void Vec3::getMin(Vec3 other) {
    x = other.x < x ? other.x : x;
    y = other.y < y ? other.y : y;
    z = other.z < z ? other.z : z;
}

void Vec3::getMax(Vec3 other) {
    x = x > other.x ? x : other.x;
    y = y > other.y ? y : other.y;
    z = z > other.z ? z : other.z;
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

} // namespace Tessaloom::BilateralBlur
