#include "Plugins/Shared/Math/Barycentric.h"

#include "Plugins/Shared/Math/Color.h"
#include "Tests/Math/Random.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

void expectWeights(const Barycentric& actual, double u, double v, double w, double tolerance) {
    EXPECT_NEAR(actual.u, u, tolerance);
    EXPECT_NEAR(actual.v, v, tolerance);
    EXPECT_NEAR(actual.w, w, tolerance);
}

// Weights make a point, and the point gives back the weights.
template<class Point, class MakePoint>
void expectRoundTrip(MakePoint make) {
    forEachSeed(100, [&](Random& random) {
        const Point a = make(random), b = make(random), c = make(random);
        const double u = random.between(-1, 2), v = random.between(-1, 2), w = 1 - u - v;
        const Point p = Barycentric(u, v, w).interpolate(a, b, c);
        Barycentric found(a, b, c, p);
        expectWeights(found, u, v, w, 1e-9);
        EXPECT_EQ(found.isInside(), u >= 0 && v >= 0 && w >= 0);
    });
}

TEST(Barycentric, WeightsGiveThePointBackInEveryType) {
    expectRoundTrip<Vec2>([](Random& random) { return random.vec3().getVec2(); });
    expectRoundTrip<Vec3>([](Random& random) { return random.vec3(); });
    expectRoundTrip<Vec4>([](Random& random) { return random.vec4(); });
    expectRoundTrip<Color>([](Random& random) {
        const Vec4 v = random.vec4();
        return Color(v.x, v.y, v.z, v.w);
    });
    // A point off the plane has the weights of its projection, where every component of the type counts.
    forEachSeed(20, [](Random& random) {
        const Vec4 a = random.vec4(), b = random.vec4(), c = random.vec4(), p = random.vec4();
        const auto color = [](const Vec4& v) { return Color(v.x, v.y, v.z, v.w); };
        Barycentric found(a, b, c, p);
        const Vec4 height = p - found.interpolate(a, b, c);
        EXPECT_NEAR(height.dot(a - c), 0.0, 1e-12);
        EXPECT_NEAR(height.dot(b - c), 0.0, 1e-12);
        expectWeights(Barycentric(color(a), color(b), color(c), color(p)), found.u, found.v, found.w, 0.0);
    });
    expectWeights(Barycentric(Vec3(), Vec3(1, 0, 0), Vec3(0, 1, 0), Vec3(0.25, 0.25, 5)), 0.5, 0.25, 0.25,
                  0.0);
}

TEST(Barycentric, BorderIsInsideAndNaNIsNot) {
    const Vec2 a(0, 0), b(1, 0), c(0, 1);
    expectWeights(Barycentric(a, b, c, a), 1, 0, 0, 0.0);
    expectWeights(Barycentric(a, b, c, b), 0, 1, 0, 0.0);
    expectWeights(Barycentric(a, b, c, c), 0, 0, 1, 0.0);
    for (const Vec2& p : {a, b, c, Vec2(0.5, 0), Vec2(0, 0.5), Vec2(0.5, 0.5)}) {
        EXPECT_TRUE(Barycentric(a, b, c, p).isInside());
    }
    for (const Vec2& p : {Vec2(1, 1), Vec2(-1e-9, 0.5), Vec2(0.5, -1e-9), Vec2(0.5, 0.5 + 1e-9)}) {
        EXPECT_FALSE(Barycentric(a, b, c, p).isInside());
    }
    Barycentric flat(a, a, c, b);
    EXPECT_TRUE(std::isnan(flat.u) && std::isnan(flat.v) && std::isnan(flat.w));
    EXPECT_FALSE(flat.isInside());
    // Weights that a caller gives are taken as they come: no sum is enforced, none above 1 but w passes.
    EXPECT_TRUE(Barycentric(0.5, 0.5, 0.5).isInside());
    EXPECT_TRUE(Barycentric(0, 0, 2).isInside());
    EXPECT_FALSE(Barycentric(1.5, 0, 0).isInside());
    EXPECT_EQ(Barycentric(0.5, 0.5, 0.5).interpolate(Vec3(1), Vec3(1), Vec3(1)), Vec3(1.5));
    EXPECT_EQ(Barycentric(0.5, 0.5, 0).interpolate(Color(1, 0, 0, 1), Color(0, 0, 1, 0), Color()),
              Color(0.5, 0, 0.5, 0.5));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
