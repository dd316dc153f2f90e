#include "Plugins/Shared/Math/Barycentric.h"

#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Plugins/Shared/Math/Vec3.h"
#include "Plugins/Shared/Math/Vec4.h"

namespace Tessaloom::BilateralBlur {

namespace {

template<typename Point>
double dot(const Point& a, const Point& b) {
    return a.dot(b);
}

double dot(const Color& a, const Color& b) {
    return a.r() * b.r() + a.g() * b.g() + a.b() * b.b() + a.a() * b.a();
}

template<typename Point>
Barycentric weights(const Point& a, const Point& b, const Point& c, const Point& p) {
    const Point e1 = b - c, e2 = a - c, d = p - c;
    const double d11 = dot(e1, e1), d22 = dot(e2, e2), d12 = dot(e1, e2);
    const double dp1 = dot(d, e1), dp2 = dot(d, e2);
    const double denominator = d11 * d22 - d12 * d12;
    const double u = (d11 * dp2 - d12 * dp1) / denominator;
    const double v = (d22 * dp1 - d12 * dp2) / denominator;
    return Barycentric(u, v, 1.0 - u - v);
}

template<typename Point>
Point blend(const Barycentric& weight, const Point& a, const Point& b, const Point& c) {
    return (a * weight.u + b * weight.v) + c * weight.w;
}

} // namespace

Barycentric::Barycentric(double u, double v, double w) : u(u), v(v), w(w) {}

Barycentric::Barycentric(const Vec2& a, const Vec2& b, const Vec2& c, const Vec2& p)
    : Barycentric(weights(a, b, c, p)) {}

Barycentric::Barycentric(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& p)
    : Barycentric(weights(a, b, c, p)) {}

Barycentric::Barycentric(const Vec4& a, const Vec4& b, const Vec4& c, const Vec4& p)
    : Barycentric(weights(a, b, c, p)) {}

Barycentric::Barycentric(const Color& a, const Color& b, const Color& c, const Color& p)
    : Barycentric(weights(a, b, c, p)) {}

bool Barycentric::isInside() {
    return 0.0 <= u && u <= 1.0 && 0.0 <= v && v <= 1.0 && w >= 0.0;
}

Vec2 Barycentric::interpolate(const Vec2& a, const Vec2& b, const Vec2& c) {
    return blend(*this, a, b, c);
}

Vec3 Barycentric::interpolate(const Vec3& a, const Vec3& b, const Vec3& c) {
    return blend(*this, a, b, c);
}

Vec4 Barycentric::interpolate(const Vec4& a, const Vec4& b, const Vec4& c) {
    return blend(*this, a, b, c);
}

Color Barycentric::interpolate(const Color& a, const Color& b, const Color& c) {
    return blend(*this, a, b, c);
}

} // namespace Tessaloom::BilateralBlur
