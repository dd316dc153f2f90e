#include "Plugins/Shared/Math/Box3.h"
#include "Plugins/Shared/Math/Range.h"
#include "Plugins/Shared/Math/Rect.h"
#include "Tests/Math/Random.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

template<class T>
concept ScalesWhenConst = requires(const T& a) {
    a.scale(1.0f, 1.0f);
};
static_assert(!ScalesWhenConst<Rect> && std::is_void_v<decltype(Box3().intersects(Box3()))>);

bool isEmptyValue(const Box3& box) {
    return box.min.equal(Vec3(1.7976931348623157e308), 0) && box.max.equal(Vec3(2.2250738585072014e-308), 0);
}

TEST(Rect, EdgesMoveOrResize) {
    Rect rect(1, 2, 3, 4);
    EXPECT_TRUE(rect.getBottomRight() == Vec2(4, 6) && rect.getCenter() == Vec2(2.5, 4));
    rect.setLeft(10);
    EXPECT_EQ(rect.getRight(), 13);
    rect.setRight(20);
    rect.setBottom(10.1);
    EXPECT_TRUE(rect == Rect(10, 2, 10, double(10.1f) - 2) && rect != Rect(10, 2, 10, 8.1));
    rect.setCenter({5, 0});
    EXPECT_TRUE(rect.getCenter() == Vec2(5, 0) && rect.getLeft() == 0);
}

TEST(Rect, SharedEdgesTouchWithoutIntersecting) {
    Rect left(0, 0, 2, 2);
    for (const Rect& other : {Rect(2, 0, 2, 2), Rect(0, 2, 2, 2)}) {
        EXPECT_FALSE(left.intersects(other) || other.intersects(left));
        EXPECT_TRUE(left.touches(other) && other.touches(left) && left.intersect(other).getArea() == 0);
    }
    EXPECT_TRUE(left.containsPoint({2, 2}) && left.containsPoint({0, 0}) && left.containsRect(left));
    EXPECT_EQ(left.intersect(Rect(5, 5, 1, 1)), Rect(5, 5, -3, -3));
    EXPECT_EQ(Rect().unite(Rect(5, 5, 1, 1)), Rect(0, 0, 6, 6));
    EXPECT_EQ(Rect().getInclude({5, -5}), Rect(0, -5, 5, 5));
    EXPECT_TRUE(!Rect(0, 0, 0, 5).isEmpty() && Rect(3, 3, 0, 0).isEmpty());
}

TEST(Rect, ScaleMovesEveryEdgeByTheGrowth) {
    Rect rect(0, 0, 10, 10);
    EXPECT_TRUE(rect.scale(2, 1) == Rect(-10, 0, 30, 10) && rect.scale(1, 0.5) == Rect(0, 5, 10, 0));
    EXPECT_EQ(rect.scale(1.1f, 1).x, -(double(1.1f) * 10 - 10));
    EXPECT_TRUE(rect.expand(0.1f).y == -double(0.1f) && rect.expand(Vec2(-1, 2)) == Rect(1, -2, 8, 14));
}

TEST(Box3, EmptyValueHasATinyMaximum) {
    Vec3 points[] = {Vec3(-5, -1, -2), Vec3(-3, -4, -2)};
    float values[] = {-1, 2, 3, -4, 5, 6};
    Box3 box;
    EXPECT_TRUE(box.isEmpty() && isEmptyValue(box) && Box3(Vec3(0, 0, 1), Vec3(1, 1, 0)).isEmpty());
    EXPECT_TRUE(Box3(Vec3(), Vec3()).isEmpty() && !Box3(Vec3(1), Vec3(1)).isEmpty());
    box.setFromArray(values, 6);
    EXPECT_TRUE(box.min == Vec3(-4, 2, 3) && box.max == Vec3(0, 5, 6) && box.max.x > 0);
    box.setFromPoints(points, 2);
    EXPECT_TRUE(box.min == Vec3(-5, -4, -2) && box.max == Vec3(-3, -1, -2));
    box.setFromPoints(&box.max, -7);
    EXPECT_TRUE(box.min == Vec3(-3, -1, -2) && box.max == box.min);
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
        EXPECT_EQ(common.containsPoint(point), first.containsPoint(point) && second.containsPoint(point));
        EXPECT_TRUE(both.containsBox(first) && both.containsBox(second));
        EXPECT_EQ(both.distanceToPoint(point) == 0, both.containsPoint(point));
        EXPECT_TRUE((both.getParameter(point) * both.getSize() + both.min).equal(point, 1e-12));
    });
    Box3 unit(Vec3(), Vec3(1));
    EXPECT_TRUE(unit.distanceToPoint(Vec3(4, 5, 1)) == 5 && unit.containsPoint(Vec3(NAN, 0, 1)));
    unit.expandByScalar(0.1f);
    EXPECT_TRUE(unit.min.x == -double(0.1f) && Range(true).length == 2147483647 && Range(7).location == 7);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
