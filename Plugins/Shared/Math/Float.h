#pragma once

#include <cstdint>

/// The scalar floor of the math toolkit: its constants and helpers. All of it works on doubles.
namespace Tessaloom::BilateralBlur {

/// The toolkit's general tolerance.
inline constexpr double kEpsilon = 1e-12;

/// The square of kEpsilon, for comparison with a squared distance.
inline constexpr double kEpsilonSquare = 1e-24;

/// Degrees to radians. Fourteen digits, not the double nearest to pi / 180: results depend on these bits.
inline constexpr double kDegToRad = 0.017453292519943;

/// Radians to degrees: the double nearest to 180 / pi.
inline constexpr double kRadToDeg = 57.29577951308232;

/// Distance per axis under which Vec2::isDuplicate calls two points the same.
inline constexpr double kDuplicateDistance = 0.25;

/// The magnitude of a number. -0.0 stays -0.0 and NaN stays NaN.
constexpr double absValue(double v) {
    return 0.0 <= v ? v : -v;
}

/// Whether two numbers differ by no more than the tolerance. False where one of them is NaN.
constexpr bool equalWithin(double a, double b, double tolerance) {
    return absValue(b - a) <= tolerance;
}

/// The smaller and the larger of two numbers. On a tie, or where one of them is NaN, `smaller` gives `own`
/// and `larger` gives `other`.
constexpr double smaller(double own, double other) {
    return other < own ? other : own;
}
constexpr double larger(double own, double other) {
    return own > other ? own : other;
}

/// `v` clamped to `low` and `high`. The low bound is tested first: with `low` above `high`, a value below
/// `low` gives `low` and any other number gives `high`. A NaN gives `high`.
constexpr double clampValue(double v, double low, double high) {
    if (v < low)
        return low;
    return v < high ? v : high;
}

/// 1 for a positive number, -1 for a negative one, 0 for zero and NaN.
constexpr std::int32_t signOf(double v) {
    return v > 0.0 ? 1 : (v < 0.0 ? -1 : 0);
}

/// The way from `b` to `a` on a circle of the given circumference, a - b with at most one cycle added or
/// taken off: within half a cycle either way only while a - b lies within one and a half. A difference of
/// exactly half a cycle stays as it is; with a cycle of 0 the result is a - b.
constexpr double cyclicDifference(double a, double b, double cycle) {
    const double difference = a - b;
    const double half = 0.5 * cycle;
    if (difference > half)
        return difference - cycle;
    return -half > difference ? difference + cycle : difference;
}

} // namespace Tessaloom::BilateralBlur
