#include "Plugins/Shared/Math/Vec4.h"
#include "Tests/Math/Random.h"

#include <bit>
#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(Vectors, ComparisonsAndScalarsAtTheirBounds) {
    EXPECT_TRUE(std::signbit(absValue(-0.0)));
    EXPECT_EQ(clampValue(NAN, 0, 1), 1);
    EXPECT_EQ(signOf(NAN), 0);
    EXPECT_EQ(cyclicDifference(10, 350, 360), 20);
    EXPECT_EQ(cyclicDifference(191, 10, 360), -179);
    EXPECT_EQ(cyclicDifference(190, 10, 360), 180);
    EXPECT_EQ(cyclicDifference(10, 190, 360), -180);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(kDegToRad), 0x3F91DF46A2529CE4u);
    EXPECT_TRUE(Vec2().equal({0.5, -0.5}, 0.5));
    EXPECT_EQ(Vec3(1e-12), Vec3());
    EXPECT_TRUE(Vec3() != Vec3(0, 0, 2e-12));
    EXPECT_FALSE(Vec2::equalWithTolerance(0, 0, 0.5, 0, 0.5));
    EXPECT_FALSE(Vec2::negligible(-1e-12));
    EXPECT_FALSE(Vec2(0, 9e-13).nonNegligible());
    EXPECT_TRUE(Vec2::isDuplicate({1, 1}, {1.2499, 0.7501}));
    EXPECT_FALSE(Vec2::isDuplicate({}, {0, -0.25}));
    EXPECT_TRUE(Vec4(1e-12, 0, 0, 0) != Vec4());
    EXPECT_FALSE(Vec4(0, 0, 0, 0.5).equal({}, 0.5));
    // Relative: a right angle between short vectors is not taken for a straight one.
    EXPECT_TRUE(Vec2(1e-9, 0).isOrthogonal({0, 1e-9}));
    EXPECT_FALSE(Vec2(1e-9, 0).isCollinear({0, 1e-9}));
    EXPECT_TRUE(Vec2(1e9, 3e9).isCollinear({-1e-9, -3e-9}));
    EXPECT_TRUE(Vec2().isCollinear({}));
    Vec2 undefined(NAN, 0);
    EXPECT_TRUE(undefined != undefined);
    EXPECT_TRUE(undefined.nonNegligible());
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
    EXPECT_EQ((Vec2(5, 0) / 49).x, 5.0 / 49);
    EXPECT_EQ(Vec2(-7, 7) % Vec2(4, -4), Vec2(-3, 3));
    EXPECT_EQ(Vec4(1, -2, 3, -4).lengthManhattan(), 10);
}

TEST(Vectors, MinMaxWithTiesAndNan) {
    Vec3 low(NAN, -0.0, 4), high = low, held(-1, 9, 3);
    Vec2 least(NAN, 4), most = least;
    low.getMin(Vec3(1, 0.0, 2));
    high.getMax(Vec3(1, 0.0, 2));
    least.getMin({1, 2});
    most.getMax({1, 2});
    held.clamp(Vec3(5, 5, 2), Vec3(2, 2, 4));
    EXPECT_EQ(testing::PrintToString(low), "(nan, -0, 2)");
    EXPECT_EQ(testing::PrintToString(high), "(1, 0, 4)");
    EXPECT_EQ(testing::PrintToString(least), "(nan, 2)");
    EXPECT_EQ(most, Vec2(1, 4));
    EXPECT_EQ(held, Vec3(5, 2, 3));
}

TEST(Vec2, TurnsAgreeWithEachOther) {
    forEachSeed(500, [](Random& random) {
        const Vec2 start = random.vec2(), center = random.vec2();
        const double degrees = random.between(-179, 179);
        const Vec2 turned = start.rotateRound(degrees, center);
        EXPECT_NEAR((start - center).angleBetween(turned - center), degrees, 1e-7);
        Vec2 aimed = start - center, arm = aimed, pivot = start;
        aimed.setAngle(degrees + arm.getAngle());
        arm.rotate(degrees);
        pivot.rotateAround(degrees, pivot);
        EXPECT_TRUE(aimed.equal(arm, 1e-11));
        EXPECT_TRUE(arm.equal(turned - center, 1e-14));
        EXPECT_EQ(pivot, start);
    });
    Vec2 zero, tiny(3e-13, 4e-13);
    zero.setLength(5);
    EXPECT_EQ(zero, Vec2(5, 0));
    Vec2::normalize(&tiny.x, &tiny.y);
    EXPECT_EQ(tiny.x, 3e-13);
    tiny.normalize();
    EXPECT_TRUE(tiny.equal({0.6, 0.8}, 1e-15));
    EXPECT_TRUE(Vec2(1, 2).project({}).isZero());
    EXPECT_EQ(Vec2(-0.0, 0).getAngle(), 0);
}

TEST(Vec2, SignsDecideQuadrantsAndAnchors) {
    forEachSeed(100, [](Random& random) {
        const Vec2 a = random.vec2(), b = random.vec2();
        EXPECT_EQ(Vec2::oppositeQuadrant(a, b), std::abs(a.getQuadrant() - b.getQuadrant()) == 2);
        Vec2 following = a, anchored = a;
        following.followSigns(b);
        EXPECT_EQ(following.getQuadrant(), b.getQuadrant());
        EXPECT_EQ(Vec2::anchorInward(anchored, b, {}), a.dot(b) > 0);
        EXPECT_LT(anchored.dot(b), 0);
    });
    EXPECT_TRUE(Vec2::oppositeQuadrant({0, 1}, {0, -1})) << "on one axis";
    EXPECT_EQ(Vec2::centerToTopLefetPoint({0, 10}, {100, 50}), Vec2(50, 15));
    EXPECT_EQ(Vec2::topLeftToCenterPoint({50, 15}, {100, 50}), Vec2(0, 10));
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
    Vec2 point(9, 9), a(0, 0), b(2, 2);
    double kept = 7;
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {3, 1}, point, &kept, &kept), Parallel);
    EXPECT_EQ(point, Vec2());
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 2}, {3, 3}, point, &kept, &kept), Coincident);
    EXPECT_EQ(point, Vec2(0.5, 0.5));
    EXPECT_EQ(kept, 7);
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {1, 1}, point, nullptr, nullptr), Within);
    EXPECT_EQ(Vec2::intersect(a, b, {0, 2}, {2, 0}, b, &a.x, &a.y), Within);
    EXPECT_EQ(b, Vec2(1, 1)) << "also an input";
    EXPECT_EQ(a, Vec2(0.5, 0.5)) << "also an input";
}

TEST(Vec3, OrthoIsSquareByTheLargestComponent) {
    EXPECT_EQ(Vec3(3, -3, 1).largestAbsComponent(), 1);
    EXPECT_EQ(Vec3(2, 1, -2).largestAbsComponent(), 2);
    EXPECT_EQ(Vec3(-5, 1, 2).largestAbsComponent(), 0);
    Vec3 object(0, 5, 0), itself(1, 2, 3), v(1.5, -1.5, 2);
    object.ortho(Vec3(0, 0, 1));
    itself.ortho(itself);
    EXPECT_EQ(object, Vec3(0, 1, 0));
    EXPECT_LT(std::abs(itself.dot({1, 2, 3})), 1e-15);
    EXPECT_EQ(v.floor(), Vec3(1, -2, 2));
    EXPECT_EQ(v.rotationalDifference({1, 1, 1}), v - 1);
    EXPECT_EQ(Vec3::lerp(v, {}, 0.25), v * 0.75);
    EXPECT_EQ(v.angleBetween(v * -1) * kRadToDeg, 180);
}

TEST(Vec4, LerpFollowsTheShorterArcInSinglePrecision) {
    const Vec4 a(5, 0, 0, 0);
    EXPECT_EQ(Vec4::lerp(a, a * 2, 1), Vec4(10, 0, 0, 0));
    EXPECT_TRUE(std::isnan(Vec4::lerp(a, {}, 0.5).x));
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
    const Vec4 straight = Vec4::lerp(a, Vec4(5, 0, 0, 0.5), 0.25); // the ends are nearly parallel
    EXPECT_NEAR(straight.w / straight.x, 0.025, 1e-12);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
