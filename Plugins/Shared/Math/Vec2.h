#pragma once

#include "Plugins/Shared/Math/Float.h"

#include <cmath>
#include <cstdint>

namespace Tessaloom::BilateralBlur {

/// How the lines through two segments meet; see Vec2::intersect.
enum class IntersectionKind : std::uint8_t {
    Parallel = 0,      ///< Parallel and distinct.
    Within = 1,        ///< They cross inside both segments.
    Coincident = 2,    ///< One and the same line.
    OutsideFirst = 3,  ///< They cross, outside the first segment only.
    OutsideSecond = 4, ///< They cross, outside the second segment only.
    OutsideBoth = 5,   ///< They cross, outside both segments.
};

/// A point, direction or size in the plane. Any pair of doubles is valid; NaN and infinity pass through.
///
/// Angles are degrees; with y pointing up a positive one turns counter-clockwise. Named verbs and compound
/// operators change the object and return nothing, plain operators and negate() return a new vector.
/// Nothing throws. A division by zero gives an infinity or NaN unless the operation says otherwise.
class Vec2 {
public:
    /// (0, 0).
    Vec2() = default;
    constexpr Vec2(double x, double y) : x(x), y(y) {}

    /// Sets both components.
    void set(double newX, double newY) { *this = Vec2(newX, newY); }
    /// Copies `other`, which is not changed.
    void set(Vec2& other) { *this = other; }
    /// Sets (0, 0).
    void setZero() { *this = Vec2(); }
    /// Reads array[offset] and array[offset + 1], which the caller provides. Null leaves the object
    /// unchanged.
    void fromArray(double* array, int offset);

    /// Whether each component differs by at most kEpsilon.
    bool operator==(const Vec2& other) const { return equal(other, kEpsilon); }
    /// The negation of operator==, also for NaN.
    bool operator!=(const Vec2& other) { return !(*this == other); }
    /// Whether each component differs by at most `tolerance`.
    bool equal(const Vec2& other, double tolerance) const {
        return equalWithin(x, other.x, tolerance) && equalWithin(y, other.y, tolerance);
    }
    /// Whether both components are exactly zero.
    constexpr bool isZero() const { return x == 0.0 && y == 0.0; }
    /// Whether two points lie nearer than `tolerance`. The bound itself is outside, so 0 is never met.
    static bool equalWithTolerance(double x1, double y1, double x2, double y2, double tolerance);
    static bool equalWithTolerance(Vec2 a, Vec2 b, double tolerance);
    /// Whether the cross product is at most kEpsilon times both lengths: true for a zero vector.
    bool isCollinear(const Vec2& other) const;
    /// Whether the dot product is at most kEpsilon times both lengths: true for a zero vector.
    bool isOrthogonal(const Vec2& other) const;
    /// Whether both components lie inside the open interval from -kEpsilon to kEpsilon.
    bool negligible() const { return negligible(x) && negligible(y); }
    /// The same test on one number.
    static bool negligible(double value) { return -kEpsilon < value && value < kEpsilon; }
    /// The negation of negligible(): true where a component is NaN.
    bool nonNegligible() const { return !negligible(); }
    /// Whether two points lie nearer than kDuplicateDistance on each axis; that distance itself is outside.
    static bool isDuplicate(const Vec2& a, const Vec2& b);

    /// Arithmetic per component; a scalar applies to both. The quotient is a true division, unguarded.
    constexpr Vec2 operator+(const Vec2& other) const { return {x + other.x, y + other.y}; }
    constexpr Vec2 operator+(double value) const { return {x + value, y + value}; }
    constexpr Vec2 operator-(const Vec2& other) const { return {x - other.x, y - other.y}; }
    constexpr Vec2 operator-(double value) const { return {x - value, y - value}; }
    constexpr Vec2 operator*(const Vec2& other) const { return {x * other.x, y * other.y}; }
    constexpr Vec2 operator*(double value) const { return {x * value, y * value}; }
    constexpr Vec2 operator/(const Vec2& other) const { return {x / other.x, y / other.y}; }
    constexpr Vec2 operator/(double value) const { return {x / value, y / value}; }
    void add(const Vec2& other) { *this = *this + other; }
    void add(double value) { *this = *this + value; }
    void sub(const Vec2& other) { *this = *this - other; }
    void sub(double value) { *this = *this - value; }
    void mult(const Vec2& other) { *this = *this * other; }
    void mult(double value) { *this = *this * value; }
    void divide(const Vec2& other) { *this = *this / other; }
    void divide(double value) { *this = *this / value; }
    void operator+=(const Vec2& other) { add(other); }
    void operator+=(double value) { add(value); }
    void operator-=(const Vec2& other) { sub(other); }
    void operator-=(double value) { sub(value); }
    void operator*=(const Vec2& other) { mult(other); }
    void operator*=(double value) { mult(value); }
    void operator/=(const Vec2& other) { divide(other); }
    void operator/=(double value) { divide(value); }

    /// The remainder per component, negative where this object's is; a zero divisor gives NaN.
    [[nodiscard]] Vec2 modulo(const Vec2& other) const;
    Vec2 operator%(const Vec2& other) const { return modulo(other); }
    /// A new vector (-x, -y); the object does not change.
    [[nodiscard]] constexpr Vec2 negate() const { return {-x, -y}; }
    /// The scalar product.
    constexpr double dot(const Vec2& other) const { return x * other.x + y * other.y; }
    /// The product per component, a vector: the same as operator*.
    [[nodiscard]] Vec2 dotProduction(const Vec2& other) const { return *this * other; }
    /// The cross product of this vector with the other.
    constexpr double cross(const Vec2& other) const { return x * other.y - y * other.x; }
    /// The cross product of (a, b) with (c, d).
    static double cross(double a, double b, double c, double d) { return a * d - b * c; }
    double length() const { return std::sqrt(lengthSquare()); }
    constexpr double lengthSquare() const { return x * x + y * y; }
    double distance(const Vec2& other) const { return (other - *this).length(); }
    static double distanceSquared(const Vec2& a, const Vec2& b) { return (b - a).lengthSquare(); }
    /// y / x, unguarded.
    constexpr double slope() const { return y / x; }
    /// The point at `t` of the way from `a` to `b`; `t` is not clamped.
    [[nodiscard]] static Vec2 lerp(Vec2 a, Vec2 b, double t);
    /// Changes each component to the `smaller`, or the `larger`, of itself and the other's.
    void getMin(const Vec2& other) { *this = Vec2(smaller(x, other.x), smaller(y, other.y)); }
    void getMax(const Vec2& other) { *this = Vec2(larger(x, other.x), larger(y, other.y)); }
    /// Clamps each component to those of `low` and `high`, as clampValue does.
    void clamp(const Vec2& low, const Vec2& high) {
        *this = Vec2(clampValue(x, low.x, high.x), clampValue(y, low.y, high.y));
    }

    /// Turns the vector about the origin. Exactly 0 degrees leaves its bits alone.
    void rotate(double degrees);
    /// The copy of this point turned about `center`; the object does not change.
    [[nodiscard]] Vec2 rotateRound(double degrees, const Vec2& center) const;
    /// Turns this point itself about `center`.
    void rotateAround(double degrees, const Vec2& center);
    /// The vector a quarter turn counter-clockwise, (-y, x), under two names.
    constexpr Vec2 normal() const { return {-y, x}; }
    constexpr Vec2 perpindicularLeft() const { return normal(); }
    /// The vector a quarter turn clockwise, (y, -x).
    constexpr Vec2 perpindicularRight() const { return {y, -x}; }
    /// Turns the object itself to (-y, x).
    void prepen() { *this = normal(); }
    /// The direction in degrees, -180 to 180; 0 for the zero vector. -180 only where y is -0.0.
    double getAngle() const;
    /// Sets the direction in degrees and keeps the length.
    void setAngle(double degrees);
    /// The turn from this vector to the other in degrees, -180 to 180, positive counter-clockwise. -180 only
    /// where the cross product is -0.0.
    double angleBetween(const Vec2& other) const;
    /// Keeps the direction and sets the length. An exactly zero vector becomes (length, 0).
    void setLength(double length);
    /// Sets the length 1. An exactly zero vector becomes (1, 0).
    void normalize();
    /// Scales a pair to the length 1; one of a length up to kEpsilon stays as it is.
    static void normalize(double* x, double* y);
    /// The projection of this vector on the direction of `onto`; zero where `onto` is exactly zero.
    [[nodiscard]] Vec2 project(const Vec2& onto) const;
    /// Negates each component that is positive where the other's is not, or the reverse. Zero is not
    /// positive.
    void followSigns(const Vec2& other);

    /// The distance from this point to the infinite line through `a` and `b`; NaN where they are one point.
    double distanceToLine(const Vec2& a, const Vec2& b);
    /// The distance from `a` to the foot of this point's perpendicular on the line through `a` and `b`.
    /// Never negative: a foot behind `a` counts like one ahead. NaN where `a` and `b` are one point.
    double lineProjectionLength(const Vec2& a, const Vec2& b);
    /// 1 to 4, counter-clockwise from positive x and y; zero counts as positive.
    std::int32_t getQuadrant() const;
    /// Whether two points are in opposite quadrants or on opposite halves of one axis.
    static bool oppositeQuadrant(const Vec2& a, const Vec2& b);
    /// From the frame with its origin in the middle of an area and y upward to the one with its origin in the
    /// area's top left corner and y downward.
    static Vec2 centerToTopLefetPoint(const Vec2& point, const Vec2& size);
    /// The inverse of centerToTopLefetPoint.
    static Vec2 topLeftToCenterPoint(const Vec2& point, const Vec2& size);
    /// Twice the area of a triangle, positive where a, b, c run counter-clockwise with y upward.
    static double signedArea(const Vec2& a, const Vec2& b, const Vec2& c);
    /// Whether `c` and `d` lie on different sides of the infinite line through `a` and `b`, a point on the
    /// line counting with the right-hand side. The segments themselves need not touch.
    static bool intersecting(const Vec2& a, const Vec2& b, const Vec2& c, const Vec2& d);
    /// Where the lines through the segments a-b and c-d cross. `point` becomes the crossing, (0, 0) for
    /// parallel lines, the middle of a-b for coincident ones. The parameters, 0 to 1 from one end of a
    /// segment to the other, are written only where the lines cross; either pointer may be null.
    static IntersectionKind intersect(const Vec2& a, const Vec2& b, const Vec2& c, const Vec2& d, Vec2& point,
                                      double* firstParameter, double* secondParameter);
    /// Whether `direction`, which does not change, points from `b` towards `a`: its dot product with a - b is
    /// positive.
    static bool anchorOutwardD(Vec2& direction, const Vec2& a, const Vec2& b);
    /// Negates `direction` where anchorOutwardD equals `reversed`, and returns whether it did.
    static bool anchorOutward(Vec2& direction, const Vec2& a, const Vec2& b, bool reversed);
    /// anchorOutward with `reversed` true.
    static bool anchorInward(Vec2& direction, const Vec2& a, const Vec2& b);

    double x = 0.0;
    double y = 0.0;
};

} // namespace Tessaloom::BilateralBlur
