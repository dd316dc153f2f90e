#pragma once

#include "Plugins/Shared/Math/Vec2.h"

#include <cmath>
#include <cstdint>

namespace Tessaloom::BilateralBlur {

class Mat4;
class Quaternion;

/// A point or direction in space. Any three doubles are valid; NaN and infinity pass through.
///
/// Angles are radians. Named verbs and compound operators change the object and return nothing, plain
/// operators, negate(), invert() and floor() return a new vector. Nothing throws, and a division by zero
/// gives an infinity or NaN.
class Vec3 {
public:
    /// (0, 0, 0).
    Vec3() = default;
    constexpr Vec3(double x, double y, double z) : x(x), y(y), z(z) {}
    /// All three components `v`.
    constexpr explicit Vec3(double v) : Vec3(v, v, v) {}
    constexpr Vec3(Vec2 v, double z) : Vec3(v.x, v.y, z) {}

    void set(Vec2 v, double newZ) { *this = Vec3(v, newZ); }
    void set(double newX, double newY, double newZ) { *this = Vec3(newX, newY, newZ); }
    /// Sets x for index 0, y for index 1 and z for every other index.
    void set(int index, double value);
    /// Sets (0, 0, 0).
    void setZero() { *this = Vec3(); }
    /// Reads the three elements from array[offset] on, which the caller provides.
    void fromArray(const double* array, int offset);
    /// Writes the three elements from array[offset] on, for which the caller provides the room.
    void toArray(double* array, int offset);
    /// (x, y).
    constexpr Vec2 getVec2() const { return {x, y}; }

    /// Whether each component differs by at most kEpsilon.
    bool operator==(const Vec3& other) const { return equal(other, kEpsilon); }
    bool operator!=(const Vec3& other) const { return !(*this == other); }
    /// Whether each component differs by at most `tolerance`.
    bool equal(const Vec3& other, double tolerance) const;
    /// Whether all three components are exactly zero.
    constexpr bool isZero() const { return x == 0.0 && y == 0.0 && z == 0.0; }
    /// The index, 0 to 2, of the component of the largest magnitude; the later one on a tie.
    std::int32_t largestAbsComponent() const;

    /// Arithmetic per component; a scalar applies to all three. The quotient is a true division, unguarded.
    constexpr Vec3 operator+(const Vec3& other) const { return {x + other.x, y + other.y, z + other.z}; }
    constexpr Vec3 operator+(double value) const { return {x + value, y + value, z + value}; }
    constexpr Vec3 operator-(const Vec3& other) const { return {x - other.x, y - other.y, z - other.z}; }
    constexpr Vec3 operator-(double value) const { return {x - value, y - value, z - value}; }
    constexpr Vec3 operator*(const Vec3& other) const { return {x * other.x, y * other.y, z * other.z}; }
    constexpr Vec3 operator*(double value) const { return {x * value, y * value, z * value}; }
    constexpr Vec3 operator/(const Vec3& other) const { return {x / other.x, y / other.y, z / other.z}; }
    constexpr Vec3 operator/(double value) const { return {x / value, y / value, z / value}; }
    void add(const Vec3& other) { *this = *this + other; }
    void add(double value) { *this = *this + value; }
    void sub(const Vec3& other) { *this = *this - other; }
    void sub(double value) { *this = *this - value; }
    void mult(const Vec3& other) { *this = *this * other; }
    void mult(double value) { *this = *this * value; }
    void divide(const Vec3& other) { *this = *this / other; }
    void divide(double value) { *this = *this / value; }
    void operator+=(const Vec3& other) { add(other); }
    void operator+=(double value) { add(value); }
    void operator-=(const Vec3& other) { sub(other); }
    void operator-=(double value) { sub(value); }
    void operator*=(const Vec3& other) { mult(other); }
    void operator*=(double value) { mult(value); }
    void operator/=(const Vec3& other) { divide(other); }
    void operator/=(double value) { divide(value); }

    constexpr double dot(const Vec3& other) const { return x * other.x + y * other.y + z * other.z; }
    /// The cross product of this vector with the other, right-handed.
    [[nodiscard]] Vec3 cross(const Vec3& other) const {
        return {y * other.z - z * other.y, z * other.x - x * other.z, x * other.y - y * other.x};
    }
    /// The angle to the other in radians, 0 to pi. NaN where one is zero or rounding carries the cosine
    /// past 1.
    double angleBetween(const Vec3& other) const;
    double length() const { return std::sqrt(lengthSquare()); }
    constexpr double lengthSquare() const { return x * x + y * y + z * z; }
    double distance(const Vec3& other) const { return (other - *this).length(); }
    double distanceSquare(const Vec3& other) const { return (other - *this).lengthSquare(); }
    /// Keeps the direction and sets the length. An exactly zero vector becomes (length, 0, 0).
    void setLength(double length);
    /// Sets the length 1. An exactly zero vector becomes (1, 0, 0).
    void normalize() { setLength(1.0); }
    /// Negates the object itself.
    void setNegate() { *this = negate(); }
    /// A new vector (-x, -y, -z); the object does not change.
    [[nodiscard]] constexpr Vec3 negate() const { return {-x, -y, -z}; }
    /// Changes each component of the object itself to its reciprocal, unguarded.
    void setInvert() { *this = invert(); }
    /// A new vector of the reciprocals, unguarded; the object does not change.
    [[nodiscard]] constexpr Vec3 invert() const { return {1.0 / x, 1.0 / y, 1.0 / z}; }
    /// A new vector of the components rounded down; the object does not change.
    [[nodiscard]] Vec3 floor();
    /// Changes each component to the `smaller`, or the `larger`, of itself and the other's.
    void getMin(Vec3 other) { *this = Vec3(smaller(x, other.x), smaller(y, other.y), smaller(z, other.z)); }
    void getMax(Vec3 other) { *this = Vec3(larger(x, other.x), larger(y, other.y), larger(z, other.z)); }
    /// Clamps each component to those of `low` and `high`, as clampValue does.
    void clamp(Vec3 low, Vec3 high);
    /// The point at `t` of the way from `a` to `b`; `t` is not clamped.
    [[nodiscard]] static Vec3 lerp(Vec3 a, Vec3 b, double t);
    /// Makes this object a unit vector square to `other`: its cross product with the axis before the one of
    /// this object's largest component, normalised. (1, 0, 0) where `other` is zero or lies along that axis.
    void ortho(const Vec3& other);
    /// The components' differences as cyclicDifference gives them with a cycle of 0: nothing wraps.
    Vec3 rotationalDifference(const Vec3& other) const;

    /// Transforms the object itself as a point, M (x, y, z, 1), with no division and without the bottom row.
    void applyMatrix4(const Mat4& matrix);
    /// Transforms the object itself as a point and divides by the fourth component, unguarded.
    void applyProjection(const Mat4& matrix);
    /// Turns the object itself by a quaternion, which must have unit length.
    void applyQuaternion(const Quaternion& rotation);
    /// Transforms the object itself as a direction, M (x, y, z, 0), and normalises it. A direction that the
    /// matrix maps to zero becomes (1, 0, 0).
    void transformDirection(const Mat4& matrix);
    /// Takes the matrix's translation.
    void setFromMatrixPosition(const Mat4& matrix);
    /// Takes the first three elements of a column, 0 to 3, which is not tested.
    void setFromMatrixColumn(const Mat4& matrix, int column);

    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

} // namespace Tessaloom::BilateralBlur
