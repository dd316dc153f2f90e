#include "Plugins/Shared/Math/Affine.h"
#include "Tests/Math/Random.h"

#include <gmock/gmock.h>

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

static_assert(std::is_void_v<decltype(Affine().multiply(Affine()))>);

Affine randomAffine(Random& random) {
    const Vec3 first = random.vec3(), second = random.vec3();
    return {first.x, first.y, first.z, second.x, second.y, second.z};
}

TEST(Affine, StoresAndMeasuresRows) {
    EXPECT_THAT(Affine(1, 2, 3, 4, 5, 6).m, testing::ElementsAre(1, 3, 5, 2, 4, 6));
    Affine near(1, 0, 0, 1, 0, 1e-12), far(1, 0, 0, 1, 0, 2e-12), identity(true);
    EXPECT_TRUE(near == identity && !(far == identity));
    EXPECT_EQ(Affine(3, 0, 4, 0, 9, 9).averageScale(), 2.5);
    EXPECT_EQ(Affine(1.11728, 0, 0, 1.11728, 0, 0).averageScale(), 1.117300033569336);
}

TEST(Affine, ProductsRunInOppositeDirections) {
    forEachSeed(500, [](Random& random) {
        const Affine first = randomAffine(random), second = randomAffine(random);
        const Vec2 point = random.vec2();
        Affine product = first, reversed = second, squared = first;
        product.multiply(second);
        reversed.premultiply(first);
        squared.multiply(squared);
        EXPECT_THAT(product.m, testing::ElementsAreArray(reversed.m));
        EXPECT_TRUE(product.getTransform(point).equal(second.getTransform(first.getTransform(point)), 1e-13));
        EXPECT_TRUE(squared.getTransform(point).equal(first.getTransform(first.getTransform(point)), 1e-13));
        Vec2 moved = point, out;
        first.transform(moved.x, moved.y, &out.x, &out.y);
        first.transform(moved);
        EXPECT_TRUE(moved == first.getTransform(point) && out == moved);
    });
}

TEST(Affine, ComposingOperationsActFirst) {
    Affine composed, placed;
    composed.translate(1, 2);
    composed.scale(2, 3);
    composed.rotate(90);
    composed.skewX(45);
    // Skewed to (1, 1), turned to (-1, 1), scaled to (-2, 3), moved.
    EXPECT_TRUE(composed.getTransform({0, 1}).equal({-1, 5}, 1e-12));
    composed.skewY(45);
    EXPECT_TRUE(composed.getTransform({1, 0}).equal({-1, 8}, 1e-12));
    placed.set({10, 20}, {100, 200}, {2, 3}, 30);
    EXPECT_TRUE(placed.getTransform({10, 20}).equal({100, 200}, 1e-12));
    EXPECT_TRUE(placed.getTransform({}).equal({112.6794919, 138.0384758}, 1e-7));
}

TEST(Affine, InverseUndoesUnlessTheDeterminantIsSmall) {
    forEachSeed(500, [](Random& random) {
        const Affine matrix = randomAffine(random);
        const Vec2 point = random.vec2();
        Affine inverse = matrix;
        ASSERT_TRUE(inverse.inverse(inverse));
        const double tolerance =
            1e-13 * (1 + 1 / std::abs(Vec2::cross(matrix.m[0], matrix.m[1], matrix.m[3], matrix.m[4])));
        EXPECT_TRUE(inverse.getTransform(matrix.getTransform(point)).equal(point, tolerance));
    });
    Affine kept(1, 2, 3, 4, 5, 6);
    EXPECT_FALSE(Affine(9e-7, 0, 0, 1, 0, 0).inverse(kept) || Affine(0, 9e-7, 1, 0, 0, 0).inverse(kept));
    EXPECT_THAT(kept.m, testing::ElementsAre(1, 3, 5, 2, 4, 6));
    EXPECT_TRUE(Affine(1.1e-6, 0, 0, 1, 0, 0).inverse(kept) && Affine(-1e-6, 0, 0, 1, 0, 0).inverse(kept));
    EXPECT_THAT(Affine(false).getInverse().m, testing::ElementsAre(1, 0, 0, 0, 1, 0));
    EXPECT_THAT(Affine(0, 1, -2, 0, 0, 4).getInverse().m, testing::ElementsAre(0, 1, -4, -0.5, 0, 0));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
