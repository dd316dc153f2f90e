#include "Plugins/Shared/Math/Vec4.h"
#include "Tests/Math/Random.h"

#include <bit>
#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

static_assert(std::is_void_v<decltype(Vec2() += Vec2())> && std::is_void_v<decltype(Vec3().normalize())>);
static_assert(std::is_same_v<decltype(Vec4().negate()), Vec4> && sizeof(IntersectionKind) == 1);

TEST(Scalars, NegativeZeroNanAndBounds) {
    EXPECT_TRUE(std::signbit(absValue(-0.0)) && clampValue(NAN, 0, 1) == 1 && signOf(NAN) == 0);
    EXPECT_TRUE(equalWithin(1, 1.5, 0.5) && !equalWithin(NAN, NAN, 1) && !equalWithin(0, NAN, 1));
    EXPECT_TRUE(clampValue(3, 5, 2) == 5 && clampValue(6, 5, 2) == 2 && signOf(-0.0) == 0);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(kDegToRad), 0x3F91DF46A2529CE4u);
    EXPECT_TRUE(cyclicDifference(10, 350, 360) == 20 && cyclicDifference(191, 10, 360) == -179);
    EXPECT_TRUE(cyclicDifference(190, 10, 360) == 180 && cyclicDifference(10, 190, 360) == -180);
}

TEST(Vectors, ComparisonsKeepTheirFourForms) {
    EXPECT_TRUE(Vec2().equal({0.5, -0.5}, 0.5) && Vec3(1e-12) == Vec3() && Vec3() != Vec3(0, 0, 2e-12));
    EXPECT_FALSE(Vec2::equalWithTolerance(0, 0, 0.5, 0, 0.5) || Vec2::equalWithTolerance({}, {}, 0));
    EXPECT_FALSE(Vec2::negligible(1e-12) || Vec2::negligible(-1e-12) || Vec2(0, 9e-13).nonNegligible());
    EXPECT_TRUE(Vec2::isDuplicate({1, 1}, {1.2499, 0.7501}) && !Vec2::isDuplicate({}, {0, -0.25}));
    EXPECT_TRUE(Vec4(1e-12, 0, 0, 0) != Vec4() && Vec4(9e-13, 0, 0, 9e-13) != Vec4());
    EXPECT_TRUE(!Vec4(0, 0, 0, 0.5).equal({}, 0.5) && Vec4(1, -2, 3, -4).lengthManhattan() == 10);
    // Relative: a right angle between short vectors is not taken for a straight one.
    EXPECT_TRUE(Vec2(1e-9, 0).isOrthogonal({0, 1e-9}) && !Vec2(1e-9, 0).isCollinear({0, 1e-9}));
    EXPECT_TRUE(Vec2(1e9, 3e9).isCollinear({-1e-9, -3e-9}) && Vec2().isCollinear({}));
    Vec2 undefined(NAN, 0);
    EXPECT_TRUE(undefined != undefined && undefined.nonNegligible() && !undefined.isCollinear(undefined));
}

// The named verbs and plain operators stand behind the compound ones.
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
    EXPECT_TRUE(chain(a, b, c, a, d) == Vec4(1, 1, 1, 3) && chain(a, 3.0, 2.0, 4.0, 4.0) == (a + 1) / 2);
    EXPECT_TRUE(chain(e, f, g, e, h) == Vec3(1) && chain(e, 3.0, 2.0, 4.0, 4.0) == (e + 1) / 2);
    EXPECT_TRUE(chain(e.getVec2(), f.getVec2(), g.getVec2(), e.getVec2(), h.getVec2()) == Vec2(1, 1));
    EXPECT_TRUE(chain(e.getVec2(), 3.0, 2.0, 4.0, 4.0) == Vec2(1, 1.5) && (Vec2(5, 0) / 49).x == 5.0 / 49);
    EXPECT_TRUE(Vec2(-7, 7) % Vec2(4, -4) == Vec2(-3, 3) && Vec2(1, 2).dotProduction({3, 4}) == Vec2(3, 8));
}

TEST(Vectors, ExtremesAndGuards) {
    Vec3 low(NAN, -0.0, 4), high(NAN, 4, 1), held(-1, 9, 3);
    low.getMin(Vec3(1, 0.0, NAN));
    high.getMax(Vec3(1, NAN, 2));
    held.clamp(Vec3(5, 5, 2), Vec3(2, 2, 4));
    EXPECT_TRUE(std::isnan(low.x) && std::signbit(low.y) && low.z == 4 && held == Vec3(5, 2, 3));
    EXPECT_TRUE(high.x == 1 && std::isnan(high.y) && high.z == 2);
    Vec2 least(NAN, -0.0), most(NAN, 4);
    least.getMin({1, 0.0});
    most.getMax({1, NAN});
    EXPECT_TRUE(std::isnan(least.x) && std::signbit(least.y) && most.x == 1 && std::isnan(most.y));
    Vec2 zero, tiny(3e-13, 4e-13), same = tiny;
    zero.setLength(5);
    tiny.normalize();
    Vec2::normalize(&same.x, &same.y);
    same.fromArray(nullptr, 1);
    EXPECT_TRUE(zero == Vec2(5, 0) && tiny.equal({0.6, 0.8}, 1e-15) && same.x == 3e-13);
    EXPECT_TRUE(Vec2(1, 2).project({}).isZero() && Vec2(-0.0, 0).getAngle() == 0);
    EXPECT_TRUE(std::isnan(zero.distanceToLine({1, 1}, {1, 1})) && std::isnan(Vec3().angleBetween(Vec3(1))));
}

TEST(Vec2, TurnsAgreeWithEachOther) {
    forEachSeed(500, [](Random& random) {
        const Vec2 start = random.vec2(), center = random.vec2();
        const double degrees = random.between(-179, 179);
        const Vec2 turned = start.rotateRound(degrees, center);
        EXPECT_NEAR((start - center).angleBetween(turned - center), degrees, 1e-7);
        Vec2 aimed = start - center, arm = aimed;
        aimed.setAngle(degrees + arm.getAngle());
        arm.rotate(degrees);
        EXPECT_TRUE(aimed.equal(arm, 1e-11) && arm.equal(turned - center, 1e-14));
    });
    Vec2 pivot(3, -0.0);
    pivot.rotate(0.0);
    EXPECT_TRUE(std::signbit(pivot.y));
    pivot.rotateAround(77, pivot);
    EXPECT_TRUE(pivot == Vec2(3, 0) && Vec2(-1, 0).getAngle() == 180 && Vec2(0, -1).getAngle() == -90);
}

TEST(Vec2, SignsDecideQuadrantsAndAnchors) {
    for (int code = 0; code < 81; ++code) {
        const Vec2 a(code % 3 - 1, code / 3 % 3 - 1), b(code / 9 % 3 - 1, code / 27 - 1);
        // On each axis the points lie on different sides or both at zero, and they aren't one direction.
        const bool opposite = (a.x != b.x || a.x == 0) && (a.y != b.y || a.y == 0) && !(b - a).isZero();
        EXPECT_EQ(Vec2::oppositeQuadrant(a, b), opposite);
        Vec2 following = a;
        following.followSigns(b);
        EXPECT_EQ(following.x, (a.x > 0) == (b.x > 0) ? a.x : -a.x);
    }
    EXPECT_TRUE(Vec2(-0.0, 0).getQuadrant() == 1 && Vec2(-1, 0).getQuadrant() == 2);
    EXPECT_TRUE(Vec2(-1, -1).getQuadrant() == 3 && Vec2(0, -1).getQuadrant() == 4);
    Vec2 along(1, 0), square(0, 1);
    EXPECT_FALSE(Vec2::anchorOutward(along, {1, 0}, {}, false) || Vec2::anchorInward(square, {1, 0}, {}));
    EXPECT_TRUE(Vec2::anchorInward(along, {1, 0}, {}) && Vec2::anchorOutward(square, {1, 0}, {}, false));
    EXPECT_TRUE(along == Vec2(-1, 0) && square == Vec2(0, -1));
    const Vec2 moved = Vec2::centerToTopLefetPoint({0, 10}, {100, 50});
    EXPECT_TRUE(moved == Vec2(50, 15) && Vec2::topLeftToCenterPoint(moved, {100, 50}) == Vec2(0, 10));
}

TEST(Vec2, IntersectionAgreesWithSignedAreas) {
    forEachSeed(1000, [](Random& random) {
        Vec2 a = random.vec2(), b = random.vec2(), c = random.vec2(), d = random.vec2(), point;
        double first = 0, second = 0;
        const IntersectionKind kind = Vec2::intersect(a, b, c, d, point, &first, &second);
        const bool within = kind == IntersectionKind::Within;
        EXPECT_EQ(Vec2::intersecting(c, d, a, b), within || kind == IntersectionKind::OutsideSecond);
        EXPECT_EQ(Vec2::intersecting(a, b, c, d), within || kind == IntersectionKind::OutsideFirst);
        const double tolerance = 1e-12 * (1 + point.lengthSquare());
        EXPECT_TRUE(Vec2::lerp(a, b, first).equal(Vec2::lerp(c, d, second), tolerance));
        EXPECT_TRUE(Vec2::lerp(a, b, first).equal(point, tolerance));
        EXPECT_NEAR(a.distanceToLine(c, d) * c.distance(d), std::abs(Vec2::signedArea(c, d, a)), 1e-11);
        EXPECT_NEAR(std::hypot(a.distanceToLine(c, d), a.lineProjectionLength(c, d)), a.distance(c), 1e-11);
    });
}

TEST(Vec2, IntersectionTellsDegenerateLinesApart) {
    Vec2 point(9, 9), a(0, 0), b(2, 2);
    double kept = 7;
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {3, 1}, point, &kept, &kept), IntersectionKind::Parallel);
    EXPECT_EQ(point, Vec2());
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 2}, {3, 3}, point, &kept, &kept), IntersectionKind::Coincident);
    EXPECT_TRUE(point == Vec2(0.5, 0.5) && kept == 7);
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {1, 1}, point, nullptr, nullptr), IntersectionKind::Within);
    EXPECT_EQ(Vec2::intersect(a, b, {0, 2}, {2, 0}, b, &a.x, &a.y), IntersectionKind::Within);
    EXPECT_TRUE(b == Vec2(1, 1) && a == Vec2(0.5, 0.5)) << "the outputs were inputs";
}

TEST(Vec3, OrthoIsSquareByTheLargestComponent) {
    EXPECT_TRUE(Vec3(3, -3, 1).largestAbsComponent() == 1 && Vec3(2, 1, -2).largestAbsComponent() == 2);
    EXPECT_TRUE(Vec3().largestAbsComponent() == 2 && Vec3(-5, 1, 2).largestAbsComponent() == 0);
    Vec3 object(0, 5, 0), parallel(5, 0, 0);
    object.ortho(Vec3(0, 0, 1));
    parallel.ortho(Vec3(0, 0, 1));
    EXPECT_TRUE(object == Vec3(0, 1, 0) && parallel == Vec3(1, 0, 0));
    Vec3 itself(1, 2, 3);
    itself.ortho(itself);
    EXPECT_NEAR(itself.dot({1, 2, 3}), 0, 1e-15);
}

TEST(Vec3, SmallMembersKeepTheirComponentsApart) {
    double array[] = {9, 9, 9, 9};
    Vec3 v(1.5, -1.5, 2);
    v.toArray(array, 1);
    EXPECT_TRUE(array[0] == 9 && array[1] == 1.5 && array[2] == -1.5 && v.floor() == Vec3(1, -2, 2));
    EXPECT_TRUE(Vec3::lerp(v, {}, 0.25) == v * 0.75 && v.rotationalDifference({1, 1, 1}) == v - 1);
    EXPECT_NEAR(Vec3(1, 0, 0).angleBetween({-1, 1, 0}), 135 * kDegToRad, 1e-12);
}

TEST(Vec4, LerpFollowsTheShorterArcInSinglePrecision) {
    const Vec4 a(5, 0, 0, 0);
    EXPECT_TRUE(Vec4::lerp(a, a * 2, 1) == Vec4(10, 0, 0, 0) && std::isnan(Vec4::lerp(a, {}, 0.5).x));
    EXPECT_EQ(Vec4::lerp(a, a.negate(), 0.25), Vec4(1, 0, 0, 0));
    // How far off the arc; the far end points the other way, so the arc to its negative is the shorter one.
    const auto fault = [&a](double arc, double t) {
        const Vec4 result = Vec4::lerp(a, Vec4(std::cos(arc), 0, 0, std::sin(arc)) * -5, t);
        EXPECT_NEAR(result.length(), 1.0, 1e-14);
        return std::abs(std::atan2(result.w, result.x) - t * arc);
    };
    double worst = 0;
    forEachSeed(500, [&](Random& random) {
        worst = std::max(worst, fault(random.between(0.2, 1.5), random.between(0, 1)));
    });
    EXPECT_TRUE(worst < 1e-6 && worst > 1e-9) << worst << " is not the fault of single precision";
    EXPECT_GT(fault(0.1, 0.25), 1e-6) << "near enough, the way is straight";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
