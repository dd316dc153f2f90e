#include "Plugins/Shared/Math/Barycentric.h"
#include "Plugins/Shared/Math/Box3.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Range.h"
#include "Plugins/Shared/Math/Rect.h"
#include "Tests/Math/Random.h"

namespace Tessaloom::BilateralBlur {
namespace {

TEST(Vectors, ComparisonsAndScalarsAtTheirBounds) {
    EXPECT_EQ(clampValue(NAN, 0, 1), 1);
    EXPECT_EQ(Range(true).length, 0x7FFFFFFF);
    EXPECT_EQ(cyclicDifference(191, 10, 360), -179);
    EXPECT_EQ(cyclicDifference(10, 350, 360), 20);
    EXPECT_TRUE(Vec4() != Vec4(1e-12, 0, 0, 0)) << "the bound is outside";
    EXPECT_TRUE(Vec4().equal(Vec4(1, -2, 2, -4), 5.01));
    EXPECT_FALSE(Vec4().equal(Vec4(1, -2, 2, -4), 5));
    EXPECT_EQ(Vec4(1, -2, 4, -8).lengthManhattan(), 15);
    // Relative: a right angle between short vectors is not taken for a straight one.
    EXPECT_TRUE(Vec2(1e-9, 0).isOrthogonal({0, 1e-9}));
    EXPECT_FALSE(Vec2(1e-9, 0).isCollinear({0, 1e-9}));
    EXPECT_FALSE(Vec2::equalWithTolerance(1, 2, 4, 6, 5)) << "the bound is outside";
    EXPECT_TRUE(Vec2::equalWithTolerance(1, 2, 4, 6, 5.01));
    EXPECT_TRUE(Vec2::isDuplicate({1, 2}, {1.24, 1.76}));
    EXPECT_FALSE(Vec2::isDuplicate({1, 2}, {1.25, 2}));
    EXPECT_FALSE(Vec2::isDuplicate({1, 2}, {1, 1.75}));
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
    EXPECT_EQ(chain(e, f, g, e, h), Vec3(1));
    EXPECT_EQ(chain(e.getVec2(), f.getVec2(), g.getVec2(), e.getVec2(), h.getVec2()), Vec2(1, 1));
    EXPECT_EQ(Vec2(-7, 7) % Vec2(4, -5), Vec2(-3, 2));
    Vec3 v(1.5, -1.5, 2);
    EXPECT_EQ(changed(Vec3(3, -5, 5), &Vec3::ortho, Vec3(1, 0, 0)), Vec3(0, 0, 1))
        << "of the ties the later one is the largest";
    EXPECT_EQ(Vec3::lerp(v, v.floor(), 0.5), Vec3(1.25, -1.75, 2));
    EXPECT_EQ(Vec3(191, 10, -5).rotationalDifference({10, 350, -9}), Vec3(181, -340, 4));
}

TEST(Vec2, TurnsAndQuadrantsAgreeWithEachOther) {
    forEachSeed(500, [](Random& random) {
        const Vec2 start = random.vec2(), center = random.vec2();
        const double degrees = random.between(-179, 179);
        const Vec2 turned = start.rotateRound(degrees, center) - center;
        const Vec2 arm = start - center;
        EXPECT_NEAR(arm.angleBetween(turned), degrees, 1e-7);
        EXPECT_TRUE(changed(arm, &Vec2::setAngle, degrees + arm.getAngle()).equal(turned, 1e-11));
        EXPECT_TRUE(changed(arm, &Vec2::rotate, degrees).equal(turned, 1e-14));
        EXPECT_EQ(changed(start, &Vec2::rotateAround, degrees, center) - center, turned);
        EXPECT_TRUE(arm.project(center).equal(center * (arm.dot(center) / center.dot(center)), 1e-12));
        const int quarters = std::abs(start.getQuadrant() - center.getQuadrant());
        EXPECT_EQ(Vec2::oppositeQuadrant(start, center), quarters == 2);
        EXPECT_EQ(changed(start, &Vec2::followSigns, center).getQuadrant(), center.getQuadrant());
    });
    Vec2 pair(3, 4);
    EXPECT_EQ(changed(Vec2(), &Vec2::setLength, 5), Vec2(5, 0));
    EXPECT_EQ(changed(pair, &Vec2::fromArray, nullptr, 1), pair);
    EXPECT_EQ(Vec2::centerToTopLefetPoint(pair, {10, 20}), Vec2(8, 6));
    EXPECT_EQ(Vec2::topLeftToCenterPoint({8, 6}, {10, 20}), pair);
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
        const bool pointsOut = a.dot(b - c) > 0;
        EXPECT_EQ(changed(a, Vec2::anchorInward, b, c), pointsOut ? a.negate() : a);
        EXPECT_EQ(changed(a, Vec2::anchorOutward, b, c, false), pointsOut ? a : a.negate());
        EXPECT_EQ(Vec2::anchorOutward(point, point, point, false), true) << "nowhere";
        EXPECT_NEAR(a.distanceToLine(c, d) * c.distance(d), std::abs(Vec2::signedArea(c, d, a)), 1e-11);
        EXPECT_NEAR(std::hypot(a.distanceToLine(c, d), a.lineProjectionLength(c, d)), a.distance(c), 1e-11);
    });
    Vec2 point(9, 9);
    double kept = 7;
    EXPECT_EQ(Vec2::intersect({1, 1}, {2, 2}, {2, 0}, {3, 1}, point, &kept, &kept), Parallel);
    EXPECT_EQ(point, Vec2());
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 2}, {3, 3}, point, &kept, &kept), Coincident);
    EXPECT_EQ(point, Vec2(0.5, 0.5));
    EXPECT_EQ(kept, 7);
    EXPECT_EQ(Vec2::intersect({}, {1, 1}, {2, 0}, {1, 1}, point, nullptr, nullptr), Within);
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
    const Vec4 straight = Vec4::lerp(a, Vec4(5, 0, 0, 0.5), 0.25); // the ends are nearly parallel
    EXPECT_NEAR(straight.w / straight.x, 0.025, 1e-12);
}

TEST(Rect, EdgesMoveOrResizeAndScaleCountsTheGrowthTwice) {
    Rect rect(1, 2, 3, 4);
    rect.setRight(20);
    rect.setLeft(10);
    rect.setBottom(10.1);
    EXPECT_EQ(rect, Rect(10, 2, 19, double(10.1f) - 2));
    rect.setSize({10, 11});
    rect.setCenter({5, 6});
    EXPECT_EQ(rect, Rect(0, 0.5, 10, 11));
    EXPECT_EQ(rect.scale(2, 0.5), Rect(-10, 6, 30, 0));
}

TEST(Rect, SetOperationsAgreeWithTheirPoints) {
    forEachSeed(500, [](Random& random) {
        // Whole numbers from a few, so that edges often meet.
        const auto whole = [&] { return std::floor(random.between(1, 5)); };
        Rect first{whole(), whole(), whole(), whole()}, second{whole(), whole(), whole(), whole()};
        const Vec2 point{whole(), whole()};
        const Rect common = first.intersect(second);
        EXPECT_EQ(first.intersects(second), common.z > 0 && common.w > 0);
        EXPECT_EQ(first.touches(second), common.z >= 0 && common.w >= 0);
        EXPECT_EQ(common.containsPoint(point), first.containsPoint(point) && second.containsPoint(point));
        EXPECT_EQ(first.containsPoint(point), first.getInclude(point) == first);
        EXPECT_EQ(first.containsRect(second), first.unite(second) == first);
        EXPECT_EQ(first.getInclude(point), first.unite(Rect(point, {})));
    });
}

TEST(Box3, SetOperationsAgreeWithTheirPoints) {
    forEachSeed(1000, [](Random& random) {
        // Whole numbers from a few, so that faces often meet, but not in the origin alone: that box is empty.
        const auto whole = [&] { return random.vec3().floor() + 3; };
        Vec3 corners[] = {whole(), whole(), whole(), whole()}, point = whole();
        const Box3 first = changed(Box3(), &Box3::setFromPoints, corners, 2);
        const Box3 second = changed(Box3(), &Box3::setFromPoints, corners + 2, 2);
        const Box3 common = changed(first, &Box3::intersects, second);
        Box3 both = changed(first, &Box3::unionBox, second);
        EXPECT_EQ(changed(first, &Box3::translate, point), Box3(first.min + point, first.max + point));
        EXPECT_EQ(changed(first, &Box3::expandByVector, point), Box3(first.min - point, first.max + point));
        EXPECT_EQ(changed(first, &Box3::expandByScalar, 0.5f), Box3(first.min - 0.5, first.max + 0.5));
        EXPECT_EQ(common == Box3(), !first.intersectsBox(second));
        EXPECT_EQ(first.containsBox(second), both == first);
        EXPECT_EQ(common.containsPoint(point), first.containsPoint(point) && second.containsPoint(point));
        EXPECT_EQ(both.distanceToPoint(point) == 0, both.containsPoint(point));
    });
    EXPECT_TRUE(Box3(Vec3(), Vec3(0)).isEmpty());
    float numbers[] = {3, 7, 2, 1, 8, 5};
    Box3 numbered(Vec3(9), Vec3(9));
    numbered.setFromArray(numbers, 6);
    EXPECT_EQ(numbered, Box3(Vec3(1, 7, 2), Vec3(3, 8, 5)));
    Box3 box = changed(Box3(), &Box3::setFromCenterAndSize, Vec3(3), Vec3(6));
    EXPECT_EQ(box.distanceToPoint(Vec3(9, 10, 5)), 5);
}

TEST(Barycentric, WeightsGiveThePointBack) {
    forEachSeed(100, [](Random& random) {
        const Vec4 a = random.vec4(), b = random.vec4(), c = random.vec4();
        const double u = random.between(-1, 2), v = random.between(-1, 2), w = 1 - u - v;
        Barycentric weights(u, v, w);
        EXPECT_EQ(weights.isInside(), u >= 0 && v >= 0 && w >= 0);
        const auto expectBack = [&](auto as) {
            Barycentric found(as(a), as(b), as(c), weights.interpolate(as(a), as(b), as(c)));
            EXPECT_TRUE(Vec3(found.u, found.v, found.w).equal(Vec3(u, v, w), 1e-9));
        };
        expectBack([](const Vec4& point) { return point.getVec3().getVec2(); });
        expectBack([](const Vec4& point) { return point.getVec3(); });
        expectBack([](const Vec4& point) { return point; });
        expectBack([](const Vec4& point) { return Color(point.x, point.x, point.x, point.w); });
    });
    EXPECT_FALSE(Barycentric(Vec2(), Vec2(), Vec2(0, 1), Vec2(1, 0)).isInside()) << "not a triangle";
}

TEST(Color, ReadsAndPrintsBytesAndTreatsAlphaLikeTheRest) {
    EXPECT_EQ(Color(0x01102000u), Color(16 / 255.0f, 32 / 255.0f, 0, 1 / 255.0f));
    EXPECT_EQ(Color("#8F01"), Color(1, 0, 1 / 15.0f, 8 / 15.0f));
    EXPECT_EQ(Color("#fF0080"), Color(1, 0, 128 / 255.0f, 1));
    EXPECT_EQ(Color("#12345"), Color(1, 1, 1, 1));
    EXPECT_THROW(Color("#XYZ"), std::invalid_argument);
    EXPECT_EQ(Color(0.04, 0, 0.5, 1).toHexString(), "#A07F");
    EXPECT_EQ(Color(1e300, -1, NAN, 2).toHexString(), "#1FE7FFFFFFFFFFFFF010");
    EXPECT_EQ(Color(-1, 0, 0, 1), Color(0, 0, 0, -0.1)) << "both are nil";
    EXPECT_TRUE(Color(-1, 0, 0, 1) != Color(1, 0, 0, 1));
    EXPECT_TRUE(Color(1, 1, 1, 1 + 2e-12) != Color());
    EXPECT_EQ(Color(9, 8, 7, 6) - Color(4, 3, 2, 1) * Color(1, 0, 1, 2) * 2, Color(1, 8, 3, 2));
    // Only the weight of the first loses digits to single precision.
    EXPECT_EQ(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 0.1), Color(0.9f, 0.1, 0, 0.9f));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
