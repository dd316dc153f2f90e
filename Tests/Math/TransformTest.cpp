#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Euler.h"
#include "Tests/Math/Random.h"

#include <glm/ext.hpp>

namespace Tessaloom::BilateralBlur {
namespace {

constexpr double kPi = glm::pi<double>();
const Mat4 kSevens(Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), false);

Mat4 matrixOf(const Quaternion& q) {
    return changed(kSevens, &Mat4::setWithQuaternion, q);
}

// The oracle's values as the toolkit's.
Mat4 of(const glm::dmat4& matrix) {
    return changed(Mat4(), [&](Mat4& m) { std::copy_n(glm::value_ptr(matrix), 16, m.m); });
}

Vec3 of(const glm::dvec3& v) {
    return {v.x, v.y, v.z};
}

void expectNear(const Mat4& actual, const Mat4& expected, double tolerance) {
    EXPECT_THAT(actual.m, testing::Pointwise(testing::DoubleNear(tolerance), expected.m));
}

Quaternion rotationOf(const Euler& euler) {
    return changed(Quaternion(7, 7, 7, 7), &Quaternion::setWithEuler, euler);
}

TEST(Affine, ProductsRunAgainstTheMatrixesAndInversesUndoThem) {
    forEachSeed(100, [](Random& random) {
        const Affine first = random.mat4().getAffine(), second = random.mat4().getAffine();
        Mat4 a = changed(kSevens, &Mat4::setWithAffine, first);
        Mat4 b = changed(kSevens, &Mat4::setWithAffine, second);
        Affine product = changed(first, &Affine::multiply, second);
        EXPECT_TRUE(product == (b * a).getAffine());
        const Vec2 point = random.vec2(), moved = product.getTransform(point);
        EXPECT_EQ(Vec3(moved, 2), b * (a * Vec3(point, 2)));
        EXPECT_TRUE(product.getInverse().getTransform(moved).equal(point, 1e-9));
        EXPECT_TRUE(product.inverse(product));
        EXPECT_TRUE(product.getTransform(moved).equal(point, 1e-9));
    });
    Affine kept;
    EXPECT_FALSE(Affine(-9e-7, 0, 0, 1, 0, 0).inverse(kept));
    EXPECT_TRUE(kept == Affine());
    EXPECT_TRUE(Affine(2, 0, 0, 0, 5, 6).getInverse() == Affine());
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

TEST(Mat4, AgreesWithTheOracle) {
    Mat4 inverse;
    forEachSeed(100, [&](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4();
        const Vec3 v = random.vec3();
        const double angle = random.between(-3, 3);
        const glm::dmat4 p = glm::make_mat4(a.m), q = glm::make_mat4(b.m);
        const glm::dvec3 w = glm::make_vec3(&v.x), direction = glm::dmat3(p) * w;
        const glm::dvec4 point = p * glm::dvec4(w, 1);
        EXPECT_EQ(Mat4(a.m, true), of(p));
        EXPECT_EQ(Mat4(a.m, false), of(glm::transpose(p)));
        EXPECT_EQ(Mat4(a.getRow(0), a.getRow(1), a.getRow(2), a.getRow(3), true), of(p));
        for (int i = 0; i < 16; ++i)
            EXPECT_NE(changed(a, [&](Mat4& m) { m.m[i] += 1e-11; }), a);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(changed(a, &Mat4::setRow, i, b.getRow(i)), of(glm::row(p, i, glm::row(q, i))));
            EXPECT_EQ(changed(a, &Mat4::setColumn, i, b.getColumn(i)), of(glm::column(p, i, q[i])));
            EXPECT_EQ(changed(v, &Vec3::setFromMatrixColumn, a, i), of(glm::dvec3(p[i])));
            EXPECT_EQ(changed(Vec2(), &Vec2::fromArray, a.m, i), Vec2(a.m[i], a.m[i + 1]));
        }
        EXPECT_EQ(changed(b, [&](Mat4& m) { a.transpose(m); }), of(glm::transpose(p)));
        EXPECT_EQ(a * b, of(p * q));
        EXPECT_EQ(a + b * 2.0 - a, of(q * 2.0));
        EXPECT_EQ(changed(a, [&](Mat4& m) { m.translate(v); }), of(glm::translate(p, w)));
        EXPECT_EQ(changed(a, [&](Mat4& m) { m.scale(v); }), of(glm::scale(p, w)));
        EXPECT_EQ(changed(a, [&](Mat4& m) { m.rotate(angle, v); }), of(glm::rotate(p, angle, w)));
        EXPECT_EQ(a.multAndProject(v) * point.w, of(glm::dvec3(point)));
        EXPECT_EQ(a.multWithoutTranslate(v), of(direction));
        EXPECT_EQ(changed(v, &Vec3::applyProjection, a) * point.w, of(glm::dvec3(point)));
        EXPECT_EQ(changed(v, &Vec3::transformDirection, a), of(glm::normalize(direction)));
        EXPECT_EQ(changed(kSevens, [&](Mat4& m) { m.setScale(v); }), of(glm::scale(glm::dmat4(1), w)));
        EXPECT_NEAR(a.determinant(), glm::determinant(p), 1e-12);
        ASSERT_TRUE(a.getInverse(inverse));
        expectNear(inverse * a, Mat4(), 1e-10);
    });
    EXPECT_TRUE((Mat4() * 1e-60).getInverse(inverse)) << "tiny is not singular";
    EXPECT_FALSE(Mat4(false).getInverse(inverse));
    EXPECT_EQ(inverse, Mat4());
}

TEST(Mat4, ViewsAndProjections) {
    Mat4 frustum = kSevens, ortho = kSevens, perspective = kSevens, camera = kSevens;
    frustum.setFrustum(-1, 3, -2, 4, 2, 10);
    EXPECT_EQ(frustum, of(glm::frustum(-1.0, 3.0, -2.0, 4.0, 2.0, 10.0)));
    ortho.setOrtho(-1, 3, 4, -2, 2, 10);
    EXPECT_EQ(ortho, of(glm::ortho(-1.0, 3.0, -2.0, 4.0, 2.0, 10.0)));
    perspective.setPerspective(1.2, 1.5, 2, 10);
    EXPECT_EQ(perspective, of(glm::perspective(1.2, 1.5, 2.0, 10.0)));
    EXPECT_EQ(Mat4::getAEToGLConversionMatrix(1920, 1080) * Vec3(1920, 1080, 5), Vec3(960, -540, -5));
    camera.setLookAt(3, 1, 0, 0, 1, 0, 0, 2, 0); // from the right
    EXPECT_THAT(camera.m, testing::ElementsAre(0, 0, -1, 7, 0, 1, 0, 7, 1, 0, 0, 7, 7, 7, 7, 7));
}

TEST(Mat4, DecomposeUndoesCompose) {
    forEachSeed(50, [](Random& random) {
        const Vec3 anchor = random.vec3(), target = random.vec3(), factors = random.vec3(), v = random.vec3();
        const Quaternion turn = random.rotation();
        Mat4 matrix = kSevens;
        matrix.compose(anchor, target, turn, factors);
        EXPECT_NEAR(matrix.getMaxScaleOnAxis(), std::abs((&factors.x)[factors.largestAbsComponent()]), 1e-14);
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

TEST(Quaternion, AgreesWithTheOracle) {
    forEachSeed(100, [](Random& random) {
        const Quaternion a = random.rotation(), b = random.rotation();
        const glm::dquat p = glm::make_quat(&a.x), q = glm::make_quat(&b.x);
        const Vec3 v = random.vec3();
        const glm::dvec3 w = glm::make_vec3(&v.x);
        EXPECT_EQ(matrixOf(changed(a, &Quaternion::premultiply, b)), of(glm::mat4_cast(q * p)));
        EXPECT_EQ(matrixOf(changed(a, &Quaternion::multiply, b)), of(glm::mat4_cast(p * q)));
        EXPECT_EQ(changed(v, &Vec3::applyQuaternion, a), of(p * w));
        const Quaternion back = changed(a, &Quaternion::setInverse);
        EXPECT_EQ(Quaternion::quaternionMulVec3(back, v), of(glm::inverse(p) * w));
        const Vec3 from = of(glm::normalize(w)), to = Quaternion::quaternionMulVec3(b, from);
        for (const Vec3& end : {to, from.negate()})
            EXPECT_EQ(matrixOf(Quaternion(from, end)) * from, end);
        EXPECT_NEAR((from * 3).angleBetween(to * 2), glm::acos(glm::dot(w, q * w) / glm::dot(w, w)), 1e-7);
        const double angle = random.between(0.1, 3.1), t = random.between(-0.5, 1.5);
        Quaternion found = changed(Quaternion(), [&](Quaternion& c) { c.set(v, angle); });
        EXPECT_EQ(matrixOf(found), of(glm::rotate(glm::dmat4(1), angle, w)));
        EXPECT_NEAR(found.getRotationAngle(), angle * 180 / kPi, 1e-10);
        EXPECT_EQ(found.getRotationAxis(), from);
        EXPECT_NEAR(std::abs(changed(found, &Quaternion::setWithMat4, matrixOf(a)).dot(a)), 1.0, 1e-14);
        EXPECT_EQ(matrixOf(Quaternion::lerp(a, b, t)), of(glm::mat4_cast(glm::slerp(p, q, t))));
    });
    double numbers[] = {1, 2, 3, 4, 5, 6};
    changed(Quaternion(), &Quaternion::setWithArray, numbers, 2).toArray(numbers, 1);
    EXPECT_THAT(numbers, testing::ElementsAre(1, 3, 4, 5, 6, 6));
    // Nearly equal ends give their average whatever t is; ends beyond unit length leave the start.
    const Quaternion near(Vec3(0.48, 0.6, 0.64), 1e-4), large(0, 0, 0, 2);
    const Quaternion mean = Quaternion::lerp({}, near, 0.9);
    EXPECT_EQ(mean, Quaternion(near.x / 2, near.y / 2, near.z / 2, (1 + near.w) / 2));
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
    const Euler euler = changed(Euler(), &Euler::set, 1, 2, 3, Euler::None);
    EXPECT_EQ(euler, Euler(1 + 9e-13, 2, 3, Euler::XYZ));
    EXPECT_THAT((std::array{Euler(1 + 2e-12, 2, 3, Euler::XYZ), Euler(1, 2 + 2e-12, 3, Euler::XYZ),
                            Euler(1, 2, 3 + 2e-12, Euler::XYZ), Euler(1, 2, 3, Euler::YZX)}),
                testing::Each(testing::Ne(euler)));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
