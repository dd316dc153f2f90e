#include "Plugins/Shared/Math/Vec4.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

bool Vec4::operator==(const Vec4& other) const {
    return (other - *this).lengthSquare() < kEpsilonSquare;
}

bool Vec4::equal(const Vec4& other, double tolerance) const {
    return (other - *this).lengthSquare() < tolerance * tolerance;
}

double Vec4::lengthManhattan() const {
    return absValue(x) + absValue(y) + absValue(z) + absValue(w);
}

void Vec4::setLength(double newLength) {
    if (isZero())
        x = newLength;
    else
        mult(newLength / length());
}

Vec4 Vec4::lerp(Vec4 a, Vec4 b, double t) {
    if (t == 0.0)
        return a;
    if (t == 1.0)
        return b;
    const double cosine = a.dot(b) / (a.length() * b.length());
    if (cosine < 0.0)
        return lerp(a, b.negate(), t);

    double weightA = 1.0 - t;
    double weightB = t;
    // Closer than this the sine below would come too near to zero. The bound is the float's value.
    if (!(1.0 - cosine < 0.01f)) {
        const float theta = std::acos(static_cast<float>(cosine));
        const double scale = 1.0f / std::sin(theta);
        weightA = std::sin(static_cast<float>((1.0 - t) * theta)) * scale;
        weightB = std::sin(static_cast<float>(theta * t)) * scale;
    }
    Vec4 result = a * weightA + b * weightB;
    result.normalize();
    return result;
}

} // namespace Tessaloom::BilateralBlur
