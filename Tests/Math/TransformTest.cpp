#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Euler.h"
#include "Tests/Math/Random.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

namespace Tessaloom::BilateralBlur {
namespace {

using testing::ElementsAre;

constexpr double kPi = std::numbers::pi;
const Mat4 kSevens(Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), false);

// What `change` makes of a value.
template<typename Value, typename Change>
Value changed(Value value, Change change) {
    change(value);
    return value;
}

Mat4 matrixOf(const Quaternion& q) {
    return changed(kSevens, [&](Mat4& m) { m.setWithQuaternion(q); });
}

Quaternion fromEuler(const Euler& euler) {
    return changed(Quaternion(7, 7, 7, 7), [&](Quaternion& q) { q.setWithEuler(euler); });
}

TEST(Affine, ProductsRunAgainstTheMatrixesAndInversesUndoThem) {
    forEachSeed(100, [](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4();
        const Affine first = a.getAffine(), second = b.getAffine();
        a.setWithAffine(first);
        b.setWithAffine(second);
        const Affine product = changed(first, [&](Affine& m) { m.multiply(second); });
        EXPECT_TRUE(product == (b * a).getAffine());
        EXPECT_TRUE(product == changed(second, [&](Affine& m) { m.premultiply(first); }));
        const Vec2 point = random.vec2(), moved = changed(point, [&](Vec2&p) { product.transform(p); });
        EXPECT_EQ(Vec3(moved, 2), b * (a * Vec3(point, 2)));
        const Affine inverse = changed(product, [](Affine& m) { EXPECT_TRUE(m.inverse(m)); });
        EXPECT_TRUE(inverse.getTransform(moved).equal(point, 1e-9));
    });
    Affine out(1, 2, 3, 4, 5, 6);
    for (const double determinant : {9e-7, -9e-7})
        EXPECT_FALSE(Affine(determinant, 0, 0, 1, 0, 0).inverse(out));
    EXPECT_THAT(out.m, ElementsAre(1, 3, 5, 2, 4, 6));
    for (const double determinant : {1.1e-6, -1e-6})
        EXPECT_TRUE(Affine(determinant, 0, 0, 1, 0, 0).inverse(out));
}

TEST(Affine, ComposingOperationsActFirst) {
    Affine composed, placed;
    composed.scale(2, 3);
    composed.rotate(90);
    composed.skewX(45);
    composed.skewY(45);
    // Skewed to (1, 2) and (3, 2), turned to (-2, 3), scaled to (-4, 9).
    EXPECT_TRUE(composed.getTransform({1, 1}).equal({-4, 9}, 1e-12));
    placed.set({10, 20}, {100, 200}, {2, 3}, 30);
    EXPECT_TRUE(placed.getTransform({}).equal({112.6794919, 138.0384758}, 1e-7));
    EXPECT_EQ(Affine(0.6, 0, 0.8, 1.23456, 9, 9).averageScale(), 1.117300033569336);
}

TEST(Mat4, FlagPicksStorageOrderForNumbersAndRowsForVectors) {
    double counted[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const Vec4 a(0, 1, 2, 3), b(4, 5, 6, 7), c(8, 9, 10, 11), d(12, 13, 14, 15);
    Mat4 stored(counted, true), other(counted, false);
    EXPECT_THAT(stored.m, testing::ElementsAreArray(counted));
    EXPECT_EQ(Mat4(a, b, c, d, false), stored);
    EXPECT_EQ(Mat4(a, b, c, d, true), other);
    other.transpose(other);
    EXPECT_EQ(other, stored);
    other.setColumn(2, a);
    EXPECT_EQ(other.getColumn(2), a);
}

TEST(Mat4, ProductsAgreeWithTheirDefinitionAndSurviveAliasing) {
    forEachSeed(20, [](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4();
        const Vec3 v = random.vec3(), direction = (a * Vec4(v, 0.0)).getVec3();
        const Vec4 point = a * Vec4(v, 1.0);
        for (int i = 0; i < 16; ++i) {
            EXPECT_NEAR((a * b).m[i], a.getRow(i % 4).dot(b.getColumn(i / 4)), 1e-14);
            EXPECT_EQ((a + b * 2.0 - a).m[i], (a.m[i] + b.m[i] * 2.0) - a.m[i]);
            EXPECT_NE(changed(a, [&](Mat4& m) { m.m[i] += 1e-11; }), a);
        }
        EXPECT_EQ(changed(b, [&](Mat4& m) { Mat4::mult(a, m, m); }), a * b);
        // The vector forms differ in the fourth component.
        EXPECT_EQ(a * v, point.getVec3());
        EXPECT_EQ(a.multWithoutTranslate(v), direction);
        EXPECT_EQ(a.multAndProject(v) * point.w, point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyMatrix4(a); }), point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyProjection(a); }) * point.w, point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.setFromMatrixPosition(a); }), a * Vec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.transformDirection(a); }) * direction.length(), direction);
    });
}

TEST(Mat4, OperationsComposeOnTheRightWhatTheSettersMake) {
    forEachSeed(20, [](Random& random) {
        const double angle = random.between(-kPi, kPi);
        const Vec3 v = random.vec3();
        const Vec4 v4(v, 5.0);
        Mat4 old = random.mat4();
        // The setter starts from sevens: nothing of the old value may survive in it.
        const auto expectBoth = [&](auto set, auto compose) {
            EXPECT_EQ(changed(old, compose), old * changed(kSevens, set));
        };
        expectBoth([&](Mat4& m) { m.setTranslate(v); }, [&](Mat4& m) { m.translate(v4); });
        expectBoth([&](Mat4& m) { m.setScale(v); }, [&](Mat4& m) { m.scale(v4); });
        expectBoth([&](Mat4& m) { m.setRotation(angle, v); }, [&](Mat4& m) { m.rotate(angle, v4); });
        // The zero axis counts as the x axis.
        expectBoth([&](Mat4& m) { m.setRotation(angle, 0, 0, 0); }, [&](Mat4& m) { m.rotateX(angle); });
        expectBoth([&](Mat4& m) { m.setRotation(angle, 0, 3, 0); }, [&](Mat4& m) { m.rotateY(angle); });
        expectBoth([&](Mat4& m) { m.setRotation(angle, 0, 0, 3); }, [&](Mat4& m) { m.rotateZ(angle); });
    });
}

TEST(Mat4, ViewsAndProjections) {
    Mat4 frustum = kSevens, ortho = kSevens, perspective = kSevens, camera = kSevens;
    frustum.setFrustum(-1, 3, -2, 4, 2, 10);
    ortho.setOrtho(-1, 3, 4, -2, 2, 10);
    for (Mat4* projection : {&frustum, &ortho})
        EXPECT_EQ(projection->multAndProject(Vec3(-1, -2, -2)), Vec3(-1));
    EXPECT_EQ(frustum.multAndProject(Vec3(15, 20, -10)), Vec3(1));
    EXPECT_EQ(ortho * Vec4(3, 4, -10, 1), Vec4(1, 1, 1, 1));
    perspective.setPerspective(kPi / 2, 1.5, 2, 10);
    frustum.setFrustum(-3, 3, -2, 2, 2, 10);
    EXPECT_EQ(perspective, frustum);
    EXPECT_EQ(Mat4::getAEToGLConversionMatrix(1920, 1080) * Vec4(1920, 1080, 5, 1), Vec4(960, -540, -5, 1));
    camera.setLookAt(Vec3(3, 1, 0), Vec3(0, 1, 0), Vec3(0, 2, 0)); // from the right
    EXPECT_THAT(camera.m, ElementsAre(0, 0, -1, 7, 0, 1, 0, 7, 1, 0, 0, 7, 7, 7, 7, 7));
}

TEST(Mat4, InverseUndoesTheMatrixUnlessItIsSingular) {
    Mat4 inverse;
    forEachSeed(200, [&](Random& random) {
        Mat4 matrix = random.mat4();
        ASSERT_TRUE(matrix.getInverse(inverse));
        EXPECT_EQ(changed(matrix, [](Mat4& m) { m.getInverse(m); }), inverse);
        EXPECT_NEAR(inverse.determinant() * matrix.determinant(), 1.0, 1e-9);
        EXPECT_THAT((inverse * matrix).m, testing::Pointwise(testing::DoubleNear(1e-10), Mat4().m));
        // Whole numbers leave no rounding, so two equal rows make a determinant of exactly 0.
        std::transform(matrix.m, matrix.m + 16, matrix.m, [](double v) { return std::floor(v * 10); });
        matrix.setRow(3, matrix.getRow(0));
        EXPECT_FALSE(matrix.getInverse(inverse));
        EXPECT_EQ(inverse, Mat4::identity());
    });
    EXPECT_TRUE((Mat4() * 1e-60).getInverse(inverse)); // tiny is not singular
}

TEST(Mat4, DecomposeUndoesCompose) {
    Vec3 position, scale;
    Quaternion rotation;
    forEachSeed(50, [&](Random& random) {
        const Vec3 anchor = random.vec3(), target = random.vec3(), v = random.vec3();
        const Vec3 factors(random.between(0.1, 3), random.between(0.1, 3), random.between(0.1, 3));
        const Quaternion turn = random.rotation();
        Mat4 matrix = kSevens, plain = kSevens;
        plain.compose(target, turn, factors);
        EXPECT_EQ(plain.multAndProject(v), matrixOf(turn) * (v * factors) + target);
        matrix.compose(anchor, target, turn, factors);
        EXPECT_EQ(matrix.multAndProject(v), plain * (v - anchor));
        EXPECT_NEAR(plain.getMaxScaleOnAxis(), std::max({factors.x, factors.y, factors.z}), 1e-13);
        position = anchor;
        matrix.decompose(position, position, rotation, scale); // the anchor is an output too
        EXPECT_EQ(position, target);
        EXPECT_EQ(scale, factors);
        // A mirrored axis shows as a negative x factor; the matrix still comes back.
        plain.compose(target, turn, Vec3(factors.x, factors.y, -factors.z));
        plain.decompose(position, rotation, scale);
        EXPECT_EQ(scale.x, -std::abs(scale.x));
        EXPECT_EQ(changed(kSevens, [&](Mat4& m) { m.compose(position, rotation, scale); }), plain);
    });
    Mat4(false).decompose(position, rotation, scale);
    EXPECT_TRUE(scale.equal(Vec3(1e-06), 0.0));
}

TEST(Quaternion, SettersAndDegenerateValues) {
    double array[] = {9, 1, 2, 2, 4, 9};
    Quaternion q;
    q.setWithArray(array, 1);
    q.setInverse();
    q.toArray(array, 1);
    EXPECT_THAT(array, testing::Pointwise(testing::DoubleNear(1e-15), {9.0, -0.2, -0.4, -0.4, 0.8, 9.0}));
    q.set(0, 0, 0, 0);
    q.normalize();
    EXPECT_EQ(q, Quaternion());
    EXPECT_EQ(q.getRotationAxis(), Vec3(0, 0, 1));
    EXPECT_TRUE(q != Quaternion(0, 0, 0, 1 + 1e-13));
    EXPECT_EQ(Quaternion(Vec3(0, 0, 1), Vec3(0, 0, -1)), Quaternion(0, -1, 0, 0));
}

TEST(Quaternion, AgreesWithTheMatrix) {
    forEachSeed(100, [](Random& random) {
        const Quaternion a = random.rotation(), b = random.rotation();
        const auto unit = [&] { return changed(random.vec3(), [](Vec3& u) { u.normalize(); }); };
        const Vec3 v = random.vec3(), from = unit(), to = unit(), turned = matrixOf(a) * v;
        EXPECT_EQ(matrixOf(changed(a, [&](Quaternion& q) { q.premultiply(b); })), matrixOf(b) * matrixOf(a));
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyQuaternion(a); }), turned);
        EXPECT_EQ(Quaternion::quaternionMulVec3(a, v), turned);
        for (const Vec3& end : {to, from.negate()})
            EXPECT_EQ(matrixOf(Quaternion(from, end)) * from, end);
        const double angle = random.between(0.1, 3.1);
        Quaternion found = changed(Quaternion(), [&](Quaternion& q) { q.set(v, angle); });
        EXPECT_EQ(matrixOf(found), changed(Mat4(), [&](Mat4& m) { m.setRotation(angle, v); }));
        EXPECT_NEAR(found.getRotationAngle(), angle * 180 / kPi, 1e-10);
        EXPECT_EQ(found.getRotationAxis() * v.length(), v);
        found.setWithMat4(matrixOf(a));
        EXPECT_NEAR(std::abs(found.dot(a)), 1.0, 1e-14);
    });
}

TEST(Quaternion, SlerpRunsEvenlyAlongTheShorterArc) {
    forEachSeed(50, [](Random& random) {
        Quaternion a = random.rotation(), b = random.rotation();
        const double t = random.between(-0.5, 1.5), arc = std::acos(std::abs(a.dot(b)));
        Quaternion moved = Quaternion::lerp(a, b, t);
        EXPECT_NEAR(a.dot(moved), std::cos(t * arc), 1e-12);
        EXPECT_NEAR(std::abs(b.dot(moved)), std::abs(std::cos((1 - t) * arc)), 1e-12);
        EXPECT_EQ(Quaternion::lerp(a, b, 1.0), b); // also where the arc was the longer one
    });
    // Nearly equal ends give their average whatever t is; ends beyond unit length leave the start.
    const Quaternion near(Vec3(1, 0, 0), 1e-4), large(0, 0, 0, 2);
    EXPECT_EQ(Quaternion::lerp(Quaternion(), near, 0.9), Quaternion(near.x / 2, 0, 0, (1 + near.w) / 2));
    EXPECT_EQ(Quaternion::lerp(large, near, 0.9), large);
}

TEST(Euler, AnglesAndRotationComeBackInAllSixOrders) {
    // Each order's axes as places in a vector.
    constexpr int kAxes[][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    forEachSeed(100, [&](Random& random) {
        for (unsigned order = Euler::XYZ; order <= Euler::ZYX; ++order) {
            const auto& axes = kAxes[order - 1];
            const auto angle = [&] { return random.between(-kPi, kPi); };
            double angles[3] = {angle(), angle(), angle()};
            // Sends the angles there and back; the rotation must be the product of the three axes' own.
            const auto roundTrip = [&](double middle, double tolerance) {
                angles[axes[1]] = middle;
                Euler euler(angles[0], angles[1], angles[2], Euler::RotationOrder(order));
                const Quaternion rotation = fromEuler(euler);
                Quaternion product;
                for (const int axis : axes)
                    product.multiply(Quaternion(Vec3(axis == 0, axis == 1, axis == 2), angles[axis]));
                EXPECT_TRUE(Vec4(rotation.x, rotation.y, rotation.z, rotation.w)
                                .equal({product.x, product.y, product.z, product.w}, 4e-7));
                euler.setWithQuaternion(rotation);
                const Mat4 actual = matrixOf(fromEuler(euler)), expected = matrixOf(rotation);
                EXPECT_THAT(actual.m, testing::Pointwise(testing::DoubleNear(tolerance), expected.m))
                    << order;
                return Vec3(euler.x, euler.y, euler.z);
            };
            const Vec3 found = roundTrip(random.between(-1.5, 1.5), 1e-5);
            EXPECT_TRUE(found.equal(Vec3(angles[0], angles[1], angles[2]), 1e-5)) << order;
            // In the band around a pole one angle is dropped, at the price of twice the distance from it.
            const double pole = std::copysign(kPi / 2, random.between(-1, 1));
            roundTrip(pole, 1e-3);
            roundTrip(pole + random.between(-0.0014, 0.0014), 2.9e-3);
        }
    });
}

TEST(Euler, OrderNoneKeepsTheStoredOrder) {
    Euler euler(1, 2, 3, Euler::ZXY);
    euler.setWithMat4(Mat4());
    EXPECT_EQ(euler, Euler(0, 0, 1e-13, Euler::ZXY));
    EXPECT_TRUE(euler != Euler(0, 0, 1e-11, Euler::ZXY));
    euler.set(4, 5, 6);
    EXPECT_EQ(euler, Euler(4, 5, 6, Euler::ZXY));
    euler.setWithMat4(Mat4(), Euler::RotationOrder(9));
    EXPECT_EQ(euler, Euler(4, 5, 6, Euler::RotationOrder(9)));
    EXPECT_EQ(fromEuler(euler), Quaternion(7, 7, 7, 7));
    EXPECT_EQ(fromEuler(Euler(1, 2, 3, Euler::None)), Quaternion(0, 0, 0, 0));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
