#include "Plugins/Shared/Math/Barycentric.h"
#include "Plugins/Shared/Math/Box3.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Range.h"
#include "Plugins/Shared/Math/Rect.h"
#include "Tests/Math/Random.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

static_assert(Range(true).length == 0x7FFFFFFF);

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
        Box3 first, second, both;
        first.setFromPoints(corners, 2);
        second.setFromPoints(corners + 2, 2);
        both.setFromPoints(corners, 4);
        Box3 common = first, united = first;
        common.intersects(second);
        united.unionBox(second);
        EXPECT_TRUE(united == both);
        EXPECT_EQ(common == Box3(), !first.intersectsBox(second));
        EXPECT_EQ(first.containsBox(second), both == first);
        EXPECT_EQ(common.containsPoint(point), first.containsPoint(point) && second.containsPoint(point));
        EXPECT_EQ(both.distanceToPoint(point) == 0, both.containsPoint(point));
    });
    float values[] = {-1, 2, 3, -4, 5, 6};
    Box3 box;
    EXPECT_TRUE(box.isEmpty());
    box.setFromArray(values, 6);
    EXPECT_TRUE(box == Box3(Vec3(-4, 2, 3), Vec3(0, 5, 6))) << "the empty box has a tiny maximum";
    box.setFromCenterAndSize(Vec3(3), Vec3(4));
    box.expandByScalar(1);
    EXPECT_EQ(box.getParameter(Vec3(1.5)), Vec3(0.25));
    EXPECT_EQ(box.distanceToPoint(Vec3(9, 10, 5)), 5);
}

TEST(Barycentric, WeightsGiveThePointBackInEveryType) {
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
    EXPECT_TRUE(Barycentric(1, 0, 0).isInside()) << "a corner";
}

TEST(Color, ReadsAndPrintsBytes) {
    EXPECT_EQ(Color(0x01102000u), Color(16 / 255.0f, 32 / 255.0f, 0, 1 / 255.0f));
    EXPECT_EQ(Color("#8F01"), Color(1, 0, 1 / 15.0f, 8 / 15.0f));
    EXPECT_EQ(Color("#fF0080"), Color(1, 0, 128 / 255.0f, 1));
    EXPECT_EQ(Color("FF0000"), Color(1, 1, 1, 1));
    EXPECT_EQ(Color("#12345"), Color(1, 1, 1, 1));
    EXPECT_THROW(Color("#XYZ"), std::invalid_argument);
    EXPECT_EQ(Color(0.04, 0, 0.5, 1).toHexString(), "#A07F");
    EXPECT_EQ(Color(1e300, -1, NAN, 2).toHexString(), "#1FE7FFFFFFFFFFFFF010");
}

TEST(Color, NilColoursAreEqualAndAlphaIsLikeTheRest) {
    EXPECT_EQ(Color(-1, 0, 0, 1), Color(0, 0, 0, -0.1));
    EXPECT_TRUE(Color(-1, 0, 0, 1) != Color(1, 0, 0, 1));
    EXPECT_TRUE(Color(1, 1, 1, 1 + 2e-12) != Color());
    EXPECT_EQ(Color(9, 8, 7, 6) - Color(4, 3, 2, 1) * Color(1, 0, 1, 2) * 2, Color(1, 8, 3, 2));
    // Only the weight of the first loses digits to single precision.
    EXPECT_EQ(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 0.1), Color(0.9f, 0.1, 0, 0.9f));
    EXPECT_EQ(Color::lerp(Color(), Color(0, 1, 0, 0), 2), Color(0, 1, 0, 0));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
