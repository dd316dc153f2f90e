#include "Plugins/Shared/Math/Vec4.h"
#include "Tests/Math/Random.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(Vectors, ComparisonsAndScalarsAtTheirBounds) {
    EXPECT_EQ(clampValue(NAN, 0, 1), 1);
    EXPECT_EQ(larger(NAN, 1), 1);
    EXPECT_EQ(cyclicDifference(191, 10, 360), -179);
    EXPECT_EQ(cyclicDifference(190, 10, 360), 180);
    EXPECT_FALSE(Vec2::isDuplicate({}, {0, -0.25}));
    EXPECT_EQ(Vec3(1e-12), Vec3());
    EXPECT_TRUE(Vec3() != Vec3(0, 0, 2e-12));
    EXPECT_TRUE(Vec4() != Vec4(1e-12, 0, 0, 0)) << "the bound is outside";
    // Relative: a right angle between short vectors is not taken for a straight one.
    EXPECT_TRUE(Vec2(1e-9, 0).isOrthogonal({0, 1e-9}));
    EXPECT_FALSE(Vec2(1e-9, 0).isCollinear({0, 1e-9}));
}

// The named verbs and plain operators are what the compound ones are made of.
auto chain(auto v, auto added, auto factor, auto taken, auto divisor) {
    v += added;
    v *= factor;
    v -= taken;
    v /= divisor;
    return v;
}

TEST(Vectors, ArithmeticKeepsItsComponentsApart) {
    const Vec4 a(1, 2, 3, 4), b(1, 3, 5, 7), c(2, 3, 4, 5), d(3, 13, 29, 17);
    const Vec3 e = a.getVec3(), f = b.getVec3(), g = c.getVec3(), h = d.getVec3();
    EXPECT_EQ(chain(a, b, c, a, d), Vec4(1, 1, 1, 3));
    EXPECT_EQ(chain(a, 3.0, 2.0, 4.0, 4.0), (a + 1) / 2);
    EXPECT_EQ(chain(e, f, g, e, h), Vec3(1));
    EXPECT_EQ(chain(e, 3.0, 2.0, 4.0, 4.0), (e + 1) / 2);
    EXPECT_TRUE(chain(e.getVec2(), f.getVec2(), g.getVec2(), e.getVec2(), h.getVec2()) == Vec2(1, 1));
    EXPECT_EQ(chain(e.getVec2(), 3.0, 2.0, 4.0, 4.0), Vec2(1, 1.5));
    EXPECT_EQ(Vec2(-7, 7) % Vec2(4, -5), Vec2(-3, 2));
    EXPECT_EQ(Vec4(1, -2, 3, -4).lengthManhattan(), 10);
}

TEST(Vec2, TurnsAndQuadrantsAgreeWithEachOther) {
    forEachSeed(500, [](Random& random) {
        const Vec2 start = random.vec2(), center = random.vec2();
        const double degrees = random.between(-179, 179);
        const Vec2 turned = start.rotateRound(degrees, center) - center;
        Vec2 arm = start - center, aimed = arm;
        EXPECT_NEAR(arm.angleBetween(turned), degrees, 1e-7);
        aimed.setAngle(degrees + arm.getAngle());
        EXPECT_TRUE(aimed.equal(turned, 1e-11));
        arm.rotate(degrees);
        EXPECT_TRUE(arm.equal(turned, 1e-14));
        const int quarters = std::abs(start.getQuadrant() - center.getQuadrant());
        EXPECT_EQ(Vec2::oppositeQuadrant(start, center), quarters == 2);
        arm.followSigns(center);
        EXPECT_EQ(arm.getQuadrant(), center.getQuadrant());
    });
    Vec2 zero, pair(3, 4);
    zero.setLength(5);
    EXPECT_EQ(zero, Vec2(5, 0));
    Vec2::normalize(&pair.x, &pair.y);
    EXPECT_EQ(pair, Vec2(0.6, 0.8));
}

TEST(Vec2, IntersectionAgreesWithSignedAreasAndTellsDegenerateLinesApart) {
    using enum IntersectionKind;
    forEachSeed(1000, [](Random& random) {
        Vec2 a = random.vec2(), b = random.vec2(), c = random.vec2(), d = random.vec2(), point;
        double first = 0, second = 0;
        const IntersectionKind kind = Vec2::intersect(a, b, c, d, point, &first, &second);
        EXPECT_EQ(Vec2::intersecting(c, d, a, b), kind == Within || kind == OutsideSecond);
        EXPECT_EQ(Vec2::intersecting(a, b, c, d), kind == Within || kind == OutsideFirst);
        const double tolerance = 1e-12 * (1 + point.lengthSquare());
        EXPECT_TRUE(Vec2::lerp(a, b, first).equal(point, tolerance));
        EXPECT_TRUE(Vec2::lerp(c, d, second).equal(point, 2 * tolerance));
        EXPECT_NEAR(a.distanceToLine(c, d) * c.distance(d), std::abs(Vec2::signedArea(c, d, a)), 1e-11);
        EXPECT_NEAR(std::hypot(a.distanceToLine(c, d), a.lineProjectionLength(c, d)), a.distance(c), 1e-11);
    });
    Vec2 point(9, 9);
    double kept = 7;
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {3, 1}, point, &kept, &kept), Parallel);
    EXPECT_EQ(point, Vec2());
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 2}, {3, 3}, point, &kept, &kept), Coincident);
    EXPECT_EQ(point, Vec2(0.5, 0.5));
    EXPECT_EQ(kept, 7);
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {1, 1}, point, nullptr, nullptr), Within);
}

TEST(Vec3, OrthoIsSquareByTheLargestComponent) {
    EXPECT_EQ(Vec3(3, -3, 1).largestAbsComponent(), 1);
    EXPECT_EQ(Vec3(2, 1, -2).largestAbsComponent(), 2);
    Vec3 object(0, 5, 0), v(1.5, -1.5, 2);
    object.ortho(Vec3(0, 0, 1));
    EXPECT_EQ(object, Vec3(0, 1, 0));
    EXPECT_EQ(Vec3::lerp(v, v.floor(), 0.5), Vec3(1.25, -1.75, 2));
    EXPECT_EQ(v.angleBetween(v * -1) * kRadToDeg, 180);
}

TEST(Vec4, LerpFollowsTheShorterArcInSinglePrecision) {
    const Vec4 a(5, 0, 0, 0);
    double worst = 0;
    forEachSeed(500, [&](Random& random) {
        const double arc = random.between(0.2, 1.5), t = random.between(0, 1);
        // The far end points the other way, so the arc to its negative is the shorter one.
        const Vec4 result = Vec4::lerp(a, Vec4(std::cos(arc), 0, 0, std::sin(arc)) * -5, t);
        EXPECT_NEAR(result.length(), 1.0, 1e-14);
        worst = std::max(worst, std::abs(std::atan2(result.w, result.x) - t * arc));
    });
    EXPECT_LT(worst, 1e-6);
    EXPECT_GT(worst, 1e-9) << "smaller than single precision allows";
    EXPECT_EQ(Vec4::lerp(a, a * 2, 1), a * 2);
    const Vec4 straight = Vec4::lerp(a, Vec4(5, 0, 0, 0.5), 0.25); // the ends are nearly parallel
    EXPECT_NEAR(straight.w / straight.x, 0.025, 1e-12);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
