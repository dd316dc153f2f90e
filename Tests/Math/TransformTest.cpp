#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Euler.h"
#include "Tests/Math/Random.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

namespace Tessaloom::BilateralBlur {
namespace {

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

void expectNear(const Mat4& actual, const Mat4& expected, double tolerance) {
    EXPECT_THAT(actual.m, testing::Pointwise(testing::DoubleNear(tolerance), expected.m));
}

Quaternion rotationOf(const Euler& euler) {
    return changed(Quaternion(7, 7, 7, 7), [&](Quaternion& q) { q.setWithEuler(euler); });
}

TEST(Affine, ProductsRunAgainstTheMatrixesAndInversesUndoThem) {
    forEachSeed(100, [](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4();
        const Affine first = a.getAffine(), second = b.getAffine();
        a.setWithAffine(first);
        b.setWithAffine(second);
        Affine product = first;
        product.multiply(second);
        EXPECT_TRUE(product == (b * a).getAffine());
        const Vec2 point = random.vec2(), moved = product.getTransform(point);
        EXPECT_EQ(Vec3(moved, 2), b * (a * Vec3(point, 2)));
        EXPECT_TRUE(product.inverse(product));
        EXPECT_TRUE(product.getTransform(moved).equal(point, 1e-9));
    });
    Affine kept;
    EXPECT_FALSE(Affine(-9e-7, 0, 0, 1, 0, 0).inverse(kept));
    EXPECT_TRUE(kept == Affine());
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

TEST(Mat4, OperationsAgreeWithTheirDefinition) {
    forEachSeed(20, [](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4();
        const Vec3 v = random.vec3(), direction = (a * Vec4(v, 0.0)).getVec3();
        const Vec4 point = a * Vec4(v, 1.0);
        EXPECT_EQ(Mat4(a.m, true), a);
        EXPECT_EQ(Mat4(a.getRow(0), a.getRow(1), a.getRow(2), a.getRow(3), true), a);
        for (int i = 0; i < 16; ++i) {
            EXPECT_EQ(Mat4(a.m, false).m[i], a.m[i % 4 * 4 + i / 4]);
            EXPECT_NEAR((a * b).m[i], a.getRow(i % 4).dot(b.getColumn(i / 4)), 1e-14);
            EXPECT_EQ((a + b * 2.0 - a).m[i], (a.m[i] + b.m[i] * 2.0) - a.m[i]);
            EXPECT_NE(changed(a, [&](Mat4& m) { m.m[i] += 1e-11; }), a);
        }
        EXPECT_EQ(changed(a, [&](Mat4& m) { m.translate(v); }).getColumn(3), point);
        EXPECT_EQ(changed(a, [&](Mat4& m) { m.scale(v); }) * Vec4(1, 1, 1, 1), a * Vec4(v, 1));
        EXPECT_EQ(a * v, point.getVec3());
        EXPECT_EQ(a.multWithoutTranslate(v), direction);
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyProjection(a); }) * point.w, point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.transformDirection(a); }) * direction.length(), direction);
    });
}

TEST(Mat4, ViewsAndProjections) {
    Mat4 frustum = kSevens, ortho = kSevens, perspective = kSevens, camera = kSevens;
    frustum.setFrustum(-1, 3, -2, 4, 2, 10);
    ortho.setOrtho(-1, 3, 4, -2, 2, 10);
    for (Mat4* projection : {&frustum, &ortho})
        EXPECT_EQ(projection->multAndProject(Vec3(-1, -2, -2)), Vec3(-1));
    EXPECT_EQ(frustum.multAndProject(Vec3(15, 20, -10)), Vec3(1));
    EXPECT_EQ(ortho.multAndProject(Vec3(3, 4, -10)), Vec3(1));
    perspective.setPerspective(kPi / 2, 1.5, 2, 10);
    frustum.setFrustum(-3, 3, -2, 2, 2, 10);
    EXPECT_EQ(perspective, frustum);
    EXPECT_EQ(Mat4::getAEToGLConversionMatrix(1920, 1080) * Vec3(1920, 1080, 5), Vec3(960, -540, -5));
    camera.setLookAt(Vec3(3, 1, 0), Vec3(0, 1, 0), Vec3(0, 2, 0)); // from the right
    EXPECT_THAT(camera.m, testing::ElementsAre(0, 0, -1, 7, 0, 1, 0, 7, 1, 0, 0, 7, 7, 7, 7, 7));
}

TEST(Mat4, InverseUndoesTheMatrixUnlessItIsSingular) {
    Mat4 inverse;
    forEachSeed(200, [&](Random& random) {
        Mat4 matrix = random.mat4();
        ASSERT_TRUE(matrix.getInverse(inverse));
        EXPECT_NEAR(inverse.determinant() * matrix.determinant(), 1.0, 1e-9);
        expectNear(inverse * matrix, Mat4(), 1e-10);
    });
    EXPECT_TRUE((Mat4() * 1e-60).getInverse(inverse)) << "tiny is not singular";
    EXPECT_FALSE(Mat4(false).getInverse(inverse));
    EXPECT_EQ(inverse, Mat4());
}

TEST(Mat4, DecomposeUndoesCompose) {
    forEachSeed(50, [](Random& random) {
        const Vec3 anchor = random.vec3(), target = random.vec3(), factors = random.vec3(), v = random.vec3();
        const Quaternion turn = random.rotation();
        Mat4 matrix = kSevens;
        matrix.compose(anchor, target, turn, factors);
        EXPECT_EQ(matrix.multAndProject(v), matrixOf(turn) * ((v - anchor) * factors) + target);
        Vec3 position = anchor, scale;
        Quaternion rotation;
        matrix.decompose(position, position, rotation, scale); // the anchor is an output too
        EXPECT_EQ(position, target);
        // A mirrored axis shows as a negative factor of x; the matrix still comes back.
        EXPECT_EQ(scale.x < 0, matrix.determinant() < 0);
        matrix.decompose(position, rotation, scale);
        EXPECT_EQ(changed(kSevens, [&](Mat4& m) { m.compose(position, rotation, scale); }), matrix);
    });
}

TEST(Quaternion, AgreesWithTheMatrix) {
    forEachSeed(100, [](Random& random) {
        const Quaternion a = random.rotation(), b = random.rotation();
        const auto unit = [&] { return changed(random.vec3(), [](Vec3& u) { u.normalize(); }); };
        const Vec3 v = random.vec3(), from = unit(), to = unit(), turned = matrixOf(a) * v;
        EXPECT_EQ(matrixOf(changed(a, [&](Quaternion& q) { q.premultiply(b); })), matrixOf(b) * matrixOf(a));
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyQuaternion(a); }), turned);
        EXPECT_EQ(Quaternion::quaternionMulVec3(changed(a, [](Quaternion& q) { q.setInverse(); }), turned),
                  v);
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
    });
    // Nearly equal ends give their average whatever t is; ends beyond unit length leave the start.
    const Quaternion near(Vec3(1, 0, 0), 1e-4), large(0, 0, 0, 2);
    EXPECT_EQ(Quaternion::lerp(Quaternion(), near, 0.9), Quaternion(near.x / 2, 0, 0, (1 + near.w) / 2));
    EXPECT_EQ(Quaternion::lerp(large, near, 0.9), large);
}

TEST(Euler, RotationComesBackInAllSixOrders) {
    // Each order's axes as places in a vector.
    constexpr int kAxes[][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    constexpr void (Mat4::*kRotate[])(double) = {&Mat4::rotateX, &Mat4::rotateY, &Mat4::rotateZ};
    forEachSeed(100, [&](Random& random) {
        const double pole = std::copysign(kPi / 2, random.between(-1, 1));
        for (unsigned order = Euler::XYZ; order <= Euler::ZYX; ++order) {
            SCOPED_TRACE(order);
            const auto& axes = kAxes[order - 1];
            double angles[3] = {random.between(-kPi, kPi), random.between(-kPi, kPi),
                                random.between(-kPi, kPi)};
            const auto expectBack = [&](double middle, double tolerance) {
                angles[axes[1]] = middle;
                Euler euler(angles[0], angles[1], angles[2], Euler::RotationOrder(order));
                Mat4 product;
                for (const int axis : axes)
                    (product.*kRotate[axis])(angles[axis]);
                expectNear(matrixOf(rotationOf(euler)), product, 1e-6);
                euler.setWithQuaternion(rotationOf(euler));
                expectNear(matrixOf(rotationOf(euler)), product, tolerance);
            };
            expectBack(random.between(-1.5, 1.5), 1e-5);
            // In the band around a pole one angle is dropped, at the price of twice the distance from it.
            expectBack(pole, 1e-3);
            expectBack(pole + random.between(-0.0014, 0.0014), 2.9e-3);
        }
    });
    EXPECT_EQ(rotationOf(Euler(1, 2, 3, Euler::None)), Quaternion(0, 0, 0, 0));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
