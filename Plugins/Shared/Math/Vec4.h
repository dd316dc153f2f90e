#pragma once

#include "Plugins/Shared/Math/Vec3.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

/// Four components, with w treated like the others. Any four doubles are valid; NaN and infinity pass
/// through.
///
/// Named verbs and compound operators change the object and return nothing, plain operators, negate() and
/// invert() return a new vector. Nothing throws, and a division by zero gives an infinity or NaN.
class Vec4 {
public:
    /// (0, 0, 0, 0).
    Vec4() = default;
    constexpr Vec4(double x, double y, double z, double w) : x(x), y(y), z(z), w(w) {}
    constexpr Vec4(const Vec3& v, double w) : Vec4(v.x, v.y, v.z, w) {}

    void set(double newX, double newY, double newZ, double newW) { *this = Vec4(newX, newY, newZ, newW); }
    /// Sets (0, 0, 0, 0).
    void setZero() { *this = Vec4(); }
    /// (x, y, z).
    constexpr Vec3 getVec3() const { return {x, y, z}; }

    /// Whether the distance between both lies below kEpsilon; unlike Vec2 and Vec3 not per component.
    bool operator==(const Vec4& other) const;
    bool operator!=(const Vec4& other) const { return !(*this == other); }
    /// Whether the distance between both lies below `tolerance`; the bound itself is outside.
    bool equal(const Vec4& other, double tolerance) const;
    /// Whether all four components are exactly zero.
    constexpr bool isZero() const { return x == 0.0 && y == 0.0 && z == 0.0 && w == 0.0; }

    /// Arithmetic per component; a scalar applies to all four. The quotient is a true division, unguarded.
    constexpr Vec4 operator+(const Vec4& o) const { return {x + o.x, y + o.y, z + o.z, w + o.w}; }
    constexpr Vec4 operator+(double value) const { return {x + value, y + value, z + value, w + value}; }
    constexpr Vec4 operator-(const Vec4& o) const { return {x - o.x, y - o.y, z - o.z, w - o.w}; }
    constexpr Vec4 operator-(double value) const { return {x - value, y - value, z - value, w - value}; }
    constexpr Vec4 operator*(const Vec4& o) const { return {x * o.x, y * o.y, z * o.z, w * o.w}; }
    constexpr Vec4 operator*(double value) const { return {x * value, y * value, z * value, w * value}; }
    constexpr Vec4 operator/(const Vec4& o) const { return {x / o.x, y / o.y, z / o.z, w / o.w}; }
    constexpr Vec4 operator/(double value) const { return {x / value, y / value, z / value, w / value}; }
    void add(const Vec4& other) { *this = *this + other; }
    void add(double value) { *this = *this + value; }
    void sub(const Vec4& other) { *this = *this - other; }
    void sub(double value) { *this = *this - value; }
    void mult(const Vec4& other) { *this = *this * other; }
    void mult(double value) { *this = *this * value; }
    void divide(const Vec4& other) { *this = *this / other; }
    void divide(double value) { *this = *this / value; }
    void operator+=(const Vec4& other) { add(other); }
    void operator+=(double value) { add(value); }
    void operator-=(const Vec4& other) { sub(other); }
    void operator-=(double value) { sub(value); }
    void operator*=(const Vec4& other) { mult(other); }
    void operator*=(double value) { mult(value); }
    void operator/=(const Vec4& other) { divide(other); }
    void operator/=(double value) { divide(value); }

    /// A new vector of the negated components; the object does not change.
    [[nodiscard]] constexpr Vec4 negate() const { return {-x, -y, -z, -w}; }
    /// A new vector of the reciprocals, unguarded; the object does not change.
    [[nodiscard]] constexpr Vec4 invert() const { return {1.0 / x, 1.0 / y, 1.0 / z, 1.0 / w}; }
    constexpr double dot(const Vec4& o) const { return x * o.x + y * o.y + z * o.z + w * o.w; }
    /// The Euclidean length over all four components.
    double length() const { return std::sqrt(lengthSquare()); }
    constexpr double lengthSquare() const { return dot(*this); }
    /// The sum of the components' magnitudes.
    double lengthManhattan() const;
    /// The Euclidean distance over all four components.
    double distance(const Vec4& other) const { return (other - *this).length(); }
    /// Keeps the direction and sets the length. An exactly zero vector becomes (length, 0, 0, 0).
    void setLength(double length);
    /// Sets the length 1. An exactly zero vector becomes (1, 0, 0, 0).
    void normalize() { setLength(1.0); }
    /// The unit vector at `t` of the shorter arc from `a` to `b`, to single-precision accuracy; the straight
    /// way, normalised, where they are nearly parallel. `t` of exactly 0 or 1 gives `a` or `b` as it is.
    /// NaN where one vector is zero.
    [[nodiscard]] static Vec4 lerp(Vec4 a, Vec4 b, double t);

    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    double w = 0.0;
};

} // namespace Tessaloom::BilateralBlur
