#include "Plugins/Shared/Math/Affine.h"

#include "Plugins/Shared/Math/SineCosine.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace Tessaloom::BilateralBlur {

bool Affine::operator==(const Affine& other) const {
    return std::equal(std::begin(m), std::end(m), std::begin(other.m),
                      [](double a, double b) { return equalWithin(a, b, kEpsilon); });
}

void Affine::set(double a, double b, double c, double d, double tx, double ty) {
    *this = Affine(a, b, c, d, tx, ty);
}

void Affine::set(Vec2 anchor, Vec2 position, Vec2 scale, double degrees) {
    const auto [sine, cosine] = sineCosine(degrees * kDegToRad);
    set(scale.x * cosine, scale.x * sine, -(scale.y * sine), scale.y * cosine, position.x, position.y);
    translate(-anchor.x, -anchor.y);
}

void Affine::setSkewX(double degrees) {
    set(1.0, 0.0, std::tan(degrees * kDegToRad), 1.0, 0.0, 0.0);
}

void Affine::setSkewY(double degrees) {
    set(1.0, std::tan(degrees * kDegToRad), 0.0, 1.0, 0.0, 0.0);
}

void Affine::setRotate(double degrees) {
    const auto [sine, cosine] = sineCosine(degrees * kDegToRad);
    set(cosine, sine, -sine, cosine, 0.0, 0.0);
}

void Affine::translate(double tx, double ty) {
    Affine translation;
    translation.setTranslate(tx, ty);
    premultiply(translation);
}

void Affine::scale(double sx, double sy) {
    Affine scaling;
    scaling.setScale(sx, sy);
    premultiply(scaling);
}

void Affine::skewX(double degrees) {
    Affine skew;
    skew.setSkewX(degrees);
    premultiply(skew);
}

void Affine::skewY(double degrees) {
    Affine skew;
    skew.setSkewY(degrees);
    premultiply(skew);
}

void Affine::rotate(double degrees) {
    Affine rotation;
    rotation.setRotate(degrees);
    premultiply(rotation);
}

void Affine::multiply(const Affine& other) {
    const double(&o)[6] = other.m;
    set(o[0] * m[0] + o[1] * m[3], o[3] * m[0] + o[4] * m[3], o[0] * m[1] + o[1] * m[4],
        o[3] * m[1] + o[4] * m[4], o[0] * m[2] + o[1] * m[5] + o[2], o[3] * m[2] + o[4] * m[5] + o[5]);
}

void Affine::premultiply(const Affine& other) {
    Affine product = other;
    product.multiply(*this);
    *this = product;
}

bool Affine::inverse(Affine& out) const {
    const auto& [a, c, tx, b, d, ty] = m;
    const double determinant = a * d - c * b;
    if (-1e-06 < determinant && determinant < 1e-06)
        return false;
    const double r = 1.0 / determinant;
    out.set(d * r, -b * r, -c * r, a * r, (c * ty - d * tx) * r, (b * tx - a * ty) * r);
    return true;
}

Affine Affine::getInverse() const {
    Affine result;
    inverse(result);
    return result;
}

double Affine::averageScale() const {
    const double first = std::sqrt(m[0] * m[0] + m[1] * m[1]);
    const double second = std::sqrt(m[3] * m[3] + m[4] * m[4]);
    const auto scaled = static_cast<float>((first + second) * 0.5 * 10000.0);
    return std::round(scaled) / 10000.0f;
}

} // namespace Tessaloom::BilateralBlur
