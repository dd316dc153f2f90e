#pragma once

#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Vec4.h"

namespace Tessaloom::BilateralBlur {

/// The weights of a point with respect to the three vertices of a triangle.
///
/// The weights come from dot products alone and so exist in any number of dimensions; a point off the
/// triangle's plane has those of its orthogonal projection. A degenerate triangle gives NaN or infinities.
/// The operations change nothing but are not declared const. Nothing here throws or allocates.
class Barycentric {
public:
    double u; ///< weight of the first vertex
    double v; ///< weight of the second vertex
    double w; ///< weight of the third vertex, 1 - u - v after construction from a triangle

    /// The given weights, which need not sum to 1.
    Barycentric(double u, double v, double w);

    /// The weights of `p` in the triangle a, b, c.
    /// The normal equations of p - c = u (a - c) + v (b - c), solved by Cramer's rule.
    Barycentric(const Vec2& a, const Vec2& b, const Vec2& c, const Vec2& p);
    Barycentric(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& p);
    Barycentric(const Vec4& a, const Vec4& b, const Vec4& c, const Vec4& p);

    /// The same over the four channels, alpha included.
    Barycentric(const Color& a, const Color& b, const Color& c, const Color& p);

    /// True if the point is in the triangle or on its border. No tolerance; NaN gives false.
    bool isInside();

    /// (a u + b v) + c w.
    [[nodiscard]] Vec2 interpolate(const Vec2& a, const Vec2& b, const Vec2& c);
    [[nodiscard]] Vec3 interpolate(const Vec3& a, const Vec3& b, const Vec3& c);
    [[nodiscard]] Vec4 interpolate(const Vec4& a, const Vec4& b, const Vec4& c);

    /// The same over the four channels, alpha included and with no clamp.
    [[nodiscard]] Color interpolate(const Color& a, const Color& b, const Color& c);
};

} // namespace Tessaloom::BilateralBlur
