#include "Plugins/Shared/Math/Barycentric.h"

#include "Plugins/Shared/Math/Color.h"
#include "Tests/Math/Random.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

Vec3 weights(const Barycentric& b) {
    return {b.u, b.v, b.w};
}

// Weights make a point, and the point gives back the weights.
template<class Point, class Make>
void expectRoundTrip(Random& random, Make make) {
    const Point a = make(random.vec4()), b = make(random.vec4()), c = make(random.vec4());
    const double u = random.between(-1, 2), v = random.between(-1, 2), w = 1 - u - v;
    Barycentric found(a, b, c, Barycentric(u, v, w).interpolate(a, b, c));
    EXPECT_TRUE(weights(found).equal(Vec3(u, v, w), 1e-9));
    EXPECT_EQ(found.isInside(), u >= 0 && v >= 0 && w >= 0);
}

TEST(Barycentric, WeightsGiveThePointBackInEveryType) {
    forEachSeed(100, [](Random& random) {
        const auto color = [](const Vec4& v) { return Color(v.x, v.y, v.z, v.w); };
        expectRoundTrip<Vec2>(random, [](const Vec4& v) { return v.getVec3().getVec2(); });
        expectRoundTrip<Vec3>(random, [](const Vec4& v) { return v.getVec3(); });
        expectRoundTrip<Vec4>(random, [](const Vec4& v) { return v; });
        expectRoundTrip<Color>(random, color);
        // A point off the plane has the weights of its projection, where every component counts.
        const Vec4 a = random.vec4(), b = random.vec4(), c = random.vec4(), p = random.vec4();
        Barycentric found(a, b, c, p);
        const Vec4 height = p - found.interpolate(a, b, c);
        EXPECT_TRUE(std::abs(height.dot(a - c)) < 1e-9 && std::abs(height.dot(b - c)) < 1e-9);
        EXPECT_EQ(weights(Barycentric(color(a), color(b), color(c), color(p))), weights(found));
    });
}

TEST(Barycentric, BorderIsInsideAndNaNIsNot) {
    const Vec2 a(0, 0), b(1, 0), c(0, 1);
    for (const Vec2& p : {a, b, c, Vec2(0.5, 0), Vec2(0, 0.5), Vec2(0.5, 0.5)}) {
        EXPECT_TRUE(Barycentric(a, b, c, p).isInside());
    }
    Barycentric flat(a, a, c, b);
    EXPECT_TRUE(std::isnan(flat.u) && std::isnan(flat.v) && std::isnan(flat.w) && !flat.isInside());
    // Weights that a caller gives are taken as they come: no sum is enforced, and only w may pass 1.
    EXPECT_TRUE(Barycentric(0, 0, 2).isInside());
    EXPECT_FALSE(Barycentric(1.5, 0, 0).isInside() || Barycentric(0, 1.5, 0).isInside());
}

} // namespace
} // namespace Tessaloom::BilateralBlur
