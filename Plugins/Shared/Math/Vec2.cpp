#include "Plugins/Shared/Math/Vec2.h"

#include "Plugins/Shared/Math/SineCosine.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

namespace {

bool withinRelative(double product, const Vec2& a, const Vec2& b) {
    return absValue(product) <= std::sqrt(a.lengthSquare() * b.lengthSquare()) * kEpsilon;
}

// The foot of the perpendicular from `point` on the infinite line through `a` and `b`.
Vec2 footOnLine(const Vec2& point, const Vec2& a, const Vec2& b) {
    const Vec2 direction = b - a;
    const double t = (point - a).dot(direction) / direction.lengthSquare();
    return a + direction * t;
}

} // namespace

void Vec2::fromArray(double* array, int offset) {
    if (array)
        set(array[offset], array[offset + 1]);
}

bool Vec2::equalWithTolerance(double x1, double y1, double x2, double y2, double tolerance) {
    return equalWithTolerance(Vec2(x1, y1), Vec2(x2, y2), tolerance);
}

bool Vec2::equalWithTolerance(Vec2 a, Vec2 b, double tolerance) {
    return distanceSquared(a, b) < tolerance * tolerance;
}

bool Vec2::isCollinear(const Vec2& other) const {
    return withinRelative(cross(other), *this, other);
}

bool Vec2::isOrthogonal(const Vec2& other) const {
    return withinRelative(dot(other), *this, other);
}

bool Vec2::isDuplicate(const Vec2& a, const Vec2& b) {
    return absValue(b.x - a.x) < kDuplicateDistance && absValue(b.y - a.y) < kDuplicateDistance;
}

Vec2 Vec2::modulo(const Vec2& other) const {
    return {std::fmod(x, other.x), std::fmod(y, other.y)};
}

Vec2 Vec2::lerp(Vec2 a, Vec2 b, double t) {
    return b * t + a * (1.0 - t);
}

void Vec2::rotate(double degrees) {
    if (degrees == 0.0)
        return;
    const auto [sine, cosine] = sineCosine(degrees * kDegToRad);
    set(cosine * x - sine * y, cosine * y + sine * x);
}

Vec2 Vec2::rotateRound(double degrees, const Vec2& center) const {
    if (degrees == 0.0)
        return *this;
    const auto [sine, cosine] = sineCosine(degrees * kDegToRad);
    const Vec2 arm = *this - center;
    return {arm.x * cosine - arm.y * sine + center.x, arm.x * sine + arm.y * cosine + center.y};
}

void Vec2::rotateAround(double degrees, const Vec2& center) {
    *this = rotateRound(degrees, center);
}

double Vec2::getAngle() const {
    // Without the test, a negative zero in x would answer 180.
    return isZero() ? 0.0 : std::atan2(y, x) * kRadToDeg;
}

void Vec2::setAngle(double degrees) {
    const auto [sine, cosine] = sineCosine(degrees * kDegToRad);
    const double kept = length();
    set(kept * cosine, kept * sine);
}

double Vec2::angleBetween(const Vec2& other) const {
    return std::atan2(cross(other), dot(other)) * kRadToDeg;
}

void Vec2::setLength(double newLength) {
    if (isZero())
        x = newLength;
    else
        mult(newLength / length());
}

void Vec2::normalize() {
    setLength(1.0);
}

void Vec2::normalize(double* x, double* y) {
    Vec2 pair(*x, *y);
    const double length = pair.length();
    if (length > kEpsilon) {
        pair.mult(1.0 / length);
        *x = pair.x;
        *y = pair.y;
    }
}

Vec2 Vec2::project(const Vec2& onto) const {
    return onto * (onto.isZero() ? 0.0 : dot(onto) / onto.lengthSquare());
}

void Vec2::followSigns(const Vec2& other) {
    x = (x > 0.0) != (other.x > 0.0) ? -x : x;
    y = (y > 0.0) != (other.y > 0.0) ? -y : y;
}

double Vec2::distanceToLine(const Vec2& a, const Vec2& b) {
    return distance(footOnLine(*this, a, b));
}

double Vec2::lineProjectionLength(const Vec2& a, const Vec2& b) {
    return a.distance(footOnLine(*this, a, b));
}

std::int32_t Vec2::getQuadrant() const {
    if (y >= 0.0)
        return x >= 0.0 ? 1 : 2;
    return x >= 0.0 ? 4 : 3;
}

bool Vec2::oppositeQuadrant(const Vec2& a, const Vec2& b) {
    const bool differInX = signOf(a.x) != signOf(b.x);
    const bool differInY = signOf(a.y) != signOf(b.y);
    if (differInX)
        return differInY || signOf(a.y) == 0;
    return differInY && signOf(a.x) == 0;
}

Vec2 Vec2::centerToTopLefetPoint(const Vec2& point, const Vec2& size) {
    return {point.x + 0.5 * size.x, 0.5 * size.y - point.y};
}

Vec2 Vec2::topLeftToCenterPoint(const Vec2& point, const Vec2& size) {
    return {point.x - 0.5 * size.x, 0.5 * size.y - point.y};
}

double Vec2::signedArea(const Vec2& a, const Vec2& b, const Vec2& c) {
    return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

bool Vec2::intersecting(const Vec2& a, const Vec2& b, const Vec2& c, const Vec2& d) {
    return (signedArea(a, b, c) > 0.0) != (signedArea(a, b, d) > 0.0);
}

IntersectionKind Vec2::intersect(const Vec2& a, const Vec2& b, const Vec2& c, const Vec2& d, Vec2& point,
                                 double* firstParameter, double* secondParameter) {
    const Vec2 first = b - a;
    const Vec2 second = d - c;
    const Vec2 offset = a - c;
    const double denominator = first.x * second.y - first.y * second.x;
    const double firstNumerator = offset.y * second.x - offset.x * second.y;
    const double secondNumerator = offset.y * first.x - offset.x * first.y;
    if (negligible(denominator)) {
        const bool oneLine = negligible(firstNumerator) && negligible(secondNumerator);
        point = oneLine ? (a + b) * 0.5 : Vec2();
        return oneLine ? IntersectionKind::Coincident : IntersectionKind::Parallel;
    }

    const double t1 = firstNumerator / denominator;
    const double t2 = secondNumerator / denominator;
    // Taken before the first store: an output may be a coordinate of one of the segments.
    const Vec2 crossing = a + first * t1;
    if (firstParameter)
        *firstParameter = t1;
    if (secondParameter)
        *secondParameter = t2;
    point = crossing;

    const bool outsideFirst = t1 < 0.0 || t1 > 1.0;
    const bool outsideSecond = t2 < 0.0 || t2 > 1.0;
    if (outsideFirst)
        return outsideSecond ? IntersectionKind::OutsideBoth : IntersectionKind::OutsideFirst;
    return outsideSecond ? IntersectionKind::OutsideSecond : IntersectionKind::Within;
}

bool Vec2::anchorOutwardD(Vec2& direction, const Vec2& a, const Vec2& b) {
    return direction.x * a.x - direction.x * b.x + direction.y * a.y - direction.y * b.y > 0.0;
}

bool Vec2::anchorOutward(Vec2& direction, const Vec2& a, const Vec2& b, bool reversed) {
    const bool negates = anchorOutwardD(direction, a, b) == reversed;
    if (negates)
        direction = direction.negate();
    return negates;
}

bool Vec2::anchorInward(Vec2& direction, const Vec2& a, const Vec2& b) {
    return anchorOutward(direction, a, b, true);
}

} // namespace Tessaloom::BilateralBlur
