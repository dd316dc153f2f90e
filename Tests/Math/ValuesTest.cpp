#include "Plugins/Shared/Math/Barycentric.h"
#include "Plugins/Shared/Math/Box3.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Range.h"
#include "Plugins/Shared/Math/Rect.h"
#include "Tests/Math/Random.h"

#include <cmath>
#include <type_traits>

namespace Tessaloom::BilateralBlur {
namespace {

// A pointer must not turn into the flag of a constructor.
static_assert(!std::is_constructible_v<Mat4, const double*>);
static_assert(!std::is_constructible_v<Affine, const double*>);
static_assert(!std::is_constructible_v<Range, const int*>);

bool isEmptyValue(const Box3& box) {
    return box.min.equal(Vec3(1.7976931348623157e308), 0) && box.max.equal(Vec3(2.2250738585072014e-308), 0);
}

TEST(Rect, EdgesMoveOrResizeAndScaleCountsTheGrowthTwice) {
    Rect rect(1, 2, 3, 4);
    rect.setRight(20);
    rect.setLeft(10);
    rect.setBottom(10.1);
    EXPECT_EQ(rect, Rect(10, 2, 19, double(10.1f) - 2));
    EXPECT_TRUE(rect != Rect(10, 2, 19, 8.1));
    rect = Rect(7, 7, 10, 10);
    rect.setCenter({5, 6});
    EXPECT_EQ(rect.scale(2, 0.5), Rect(-10, 6, 30, 0));
    EXPECT_EQ(rect.expand(0.1f).x, -double(0.1f));
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
    EXPECT_EQ(Rect().unite(Rect(5, 5, 1, 1)), Rect(0, 0, 6, 6));
}

TEST(Box3, EmptyValueHasATinyMaximum) {
    Vec3 points[] = {Vec3(-5, -1, -2), Vec3(-3, -4, -2)};
    float values[] = {-1, 2, 3, -4, 5, 6};
    Box3 box;
    EXPECT_TRUE(Box3(Vec3(), {}).isEmpty());
    box.setFromArray(values, 6);
    EXPECT_TRUE(box.max.equal(Vec3(2.2250738585072014e-308, 5, 6), 0));
    EXPECT_EQ(box.min, Vec3(-4, 2, 3));
    box.setFromPoints(points, 2);
    EXPECT_TRUE(box == Box3(Vec3(-5, -4, -2), Vec3(-3, -1, -2)));
    box.setFromPoints(&box.max, -7); // the first point alone, and it is the box's own
    EXPECT_TRUE(box == Box3(Vec3(-3, -1, -2), Vec3(-3, -1, -2)));
    EXPECT_FALSE(box.isEmpty());
    box.setFromArray(values, -1);
    EXPECT_TRUE(isEmptyValue(box));
}

TEST(Box3, SetOperationsAgreeWithTheirPoints) {
    forEachSeed(1000, [](Random& random) {
        Box3 first, second, common, both;
        first.setFromCenterAndSize(random.vec3(), random.vec3() + 2);
        second.setFromCenterAndSize(random.vec3(), random.vec3() + 2);
        common = both = first;
        common.intersects(second);
        both.unionBox(second);
        const Vec3 point = random.vec3();
        EXPECT_EQ(isEmptyValue(common), !first.intersectsBox(second));
        EXPECT_EQ(first.containsBox(second), both == first);
        EXPECT_EQ(common.containsPoint(point), first.containsPoint(point) && second.containsPoint(point));
        EXPECT_EQ(both.distanceToPoint(point) == 0, both.containsPoint(point));
        EXPECT_TRUE((both.getParameter(point) * both.getSize() + both.min).equal(point, 1e-12));
    });
    Box3 unit(Vec3(), Vec3(1));
    EXPECT_EQ(unit.distanceToPoint(Vec3(4, 5, 1)), 5);
    EXPECT_TRUE(unit.containsPoint(Vec3(NAN, 0, 1)));
    unit.expandByScalar(0.1f);
    EXPECT_EQ(unit.min.x, -double(0.1f));
}

TEST(Barycentric, WeightsGiveThePointBackInEveryType) {
    forEachSeed(100, [](Random& random) {
        const Vec4 a = random.vec4(), b = random.vec4(), c = random.vec4(), p = random.vec4();
        const double u = random.between(-1, 2), v = random.between(-1, 2), w = 1 - u - v;
        Barycentric weights(u, v, w);
        const auto expectBack = [&](auto as) {
            Barycentric found(as(a), as(b), as(c), weights.interpolate(as(a), as(b), as(c)));
            EXPECT_TRUE(Vec3(found.u, found.v, found.w).equal(Vec3(u, v, w), 1e-9));
        };
        const auto color = [](const Vec4& point) { return Color(point.x, point.y, point.z, point.w); };
        expectBack([](const Vec4& point) { return point.getVec3().getVec2(); });
        expectBack([](const Vec4& point) { return point.getVec3(); });
        expectBack([](const Vec4& point) { return point; });
        expectBack(color);
        EXPECT_EQ(weights.isInside(), u >= 0 && v >= 0 && w >= 0);
        // A point off the plane has the weights of its projection, where every component counts.
        const Vec4 height = p - Barycentric(color(a), color(b), color(c), color(p)).interpolate(a, b, c);
        for (const Vec4& side : {a - c, b - c})
            EXPECT_NEAR(height.dot(side), 0, 1e-9);
    });
    EXPECT_FALSE(Barycentric(Vec2(), Vec2(), Vec2(0, 1), Vec2(1, 0)).isInside()) << "not a triangle";
    // The border is inside. Weights that a caller gives need no sum, and only w may pass 1.
    EXPECT_TRUE(Barycentric(1, 0, 0).isInside());
    EXPECT_TRUE(Barycentric(0, 1, 2).isInside());
    EXPECT_FALSE(Barycentric(1.5, 0, 0).isInside());
    EXPECT_FALSE(Barycentric(0, 1.5, 0).isInside());
}

TEST(Color, ReadsBytesAndTextsInSinglePrecision) {
    EXPECT_EQ(Color(0x01102000u), Color(16 / 255.0f, 32 / 255.0f, 0, 0.003921568859368563));
    EXPECT_EQ(Color("#F1a"), Color(1, 1 / 15.0f, 10 / 15.0f, 1));
    EXPECT_EQ(Color("#8F01"), Color(1, 0, 1 / 15.0f, 8 / 15.0f));
    EXPECT_EQ(Color("#FF0080"), Color(1, 0, 128 / 255.0f, 1));
    EXPECT_EQ(Color("#80FF0001"), Color(1, 0, 1 / 255.0f, 128 / 255.0f));
    // The conversion stops early, but the characters count.
    EXPECT_EQ(Color("#12G"), Color(0, 1 / 15.0f, 2 / 15.0f, 1));
    for (const char* text : {"FF0000", "", " #FF0000", "#12345", "#123456789", "#FFFFFFFFFFFFFFFF"})
        EXPECT_EQ(Color(text), Color(1, 1, 1, 1)) << text;
    EXPECT_THROW(Color("#XYZ"), std::invalid_argument);
    EXPECT_THROW(Color("#10000000000000000"), std::out_of_range);
}

TEST(Color, NilColoursAreEqualAndAlphaIsLikeTheRest) {
    EXPECT_EQ(Color(-1, 0, 0, 1), Color(0, 0, 0, -0.1));
    EXPECT_TRUE(Color(-1, 0, 0, 1) != Color(1, 0, 0, 1));
    EXPECT_FALSE(Color(-0.0, 0, 0, 0).isNil());
    EXPECT_TRUE(Color(1, 1, 1, 1 + 2e-12) != Color());
    EXPECT_EQ(Color(9, 8, 7, 6) - Color(4, 3, 2, 1) * Color(1, 0, 1, 2) * 2, Color(1, 8, 3, 2));
    // Only the weight of the first loses digits to single precision.
    EXPECT_EQ(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 0.1), Color(0.9f, 0.1, 0, 0.9f));
    EXPECT_EQ(Color::lerp(Color(), Color(0, 1, 0, 0), 2), Color(0, 1, 0, 0));
}

TEST(Color, PrintsWithoutPadding) {
    EXPECT_EQ(Color(0.04, 0, 0.5, 1).toHexString(), "#A07F");
    EXPECT_EQ(Color(1, -1, 0.5, 2).toHexString(), "#1FEFFFFFFFF017F");
    EXPECT_EQ(Color(1e300, -1e300, NAN, 1).toHexString(), "#7FFFFFFF800000000");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
