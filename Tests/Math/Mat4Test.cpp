#include "Plugins/Shared/Math/Mat4.h"

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Quaternion.h"
#include "Tests/Math/Random.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <type_traits>

namespace Tessaloom::BilateralBlur {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Pointwise;

constexpr double kPi = std::numbers::pi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Mutators return nothing, so no call can be chained; what "reads" without being const needs a changeable
// object.
static_assert(std::is_void_v<decltype(std::declval<Mat4&>().mult(Mat4()))> &&
              std::is_void_v<decltype(std::declval<Mat4&>().rotate(1.0, Vec3()))> &&
              std::is_void_v<decltype(std::declval<Mat4&>().position(Vec3()))> &&
              std::is_void_v<decltype(std::declval<Vec3&>().applyMatrix4(Mat4()))> &&
              std::is_void_v<decltype(std::declval<Vec3&>().transformDirection(Mat4()))>);
template<class T>
concept Multiplies = requires(T matrix, Vec3 v) {
    matrix* v;
}
|| requires(T matrix) {
    matrix.determinant();
};
static_assert(Multiplies<Mat4&> && !Multiplies<const Mat4&>);
static_assert(std::is_same_v<bool, decltype(std::declval<const Mat4&>().getInverse(std::declval<Mat4&>()))>);
static_assert(!std::is_convertible_v<bool, Mat4> && !std::is_constructible_v<Mat4, double*>);

void expectNear(const Mat4& actual, const Mat4& expected, double tolerance) {
    EXPECT_THAT(actual.m, Pointwise(testing::DoubleNear(tolerance), expected.m));
}

void expectNear(const Vec3& actual, const Vec3& expected, double tolerance) {
    EXPECT_TRUE(actual.equal(expected, tolerance))
        << actual.x << ", " << actual.y << ", " << actual.z << " is not " << expected.x << ", " << expected.y
        << ", " << expected.z;
}

void expectSame(const Mat4& actual, const Mat4& expected) {
    EXPECT_THAT(actual.m, ElementsAreArray(expected.m));
}

Mat4 filled(double value) {
    return {Vec4(value, value, value, value), Vec4(value, value, value, value),
            Vec4(value, value, value, value), Vec4(value, value, value, value), false};
}

// What `change` makes of a matrix.
template<class Change>
Mat4 changed(Mat4 matrix, Change change) {
    change(matrix);
    return matrix;
}

TEST(Mat4, FlagPicksStorageOrderForNumbersAndRowsForVectors) {
    double counted[16];
    for (int i = 0; i < 16; ++i) {
        counted[i] = i;
    }
    const Vec4 a(0, 1, 2, 3), b(4, 5, 6, 7), c(8, 9, 10, 11), d(12, 13, 14, 15);
    const auto stored = ElementsAreArray(counted);
    const auto transposed = ElementsAre(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    EXPECT_THAT(Mat4(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, false).m, transposed);
    EXPECT_THAT(Mat4(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, true).m, stored);
    EXPECT_THAT(Mat4(counted, false).m, transposed);
    EXPECT_THAT(Mat4(counted, true).m, stored);
    EXPECT_THAT(Mat4(a, b, c, d, false).m, stored);
    EXPECT_THAT(Mat4(a, b, c, d, true).m, transposed);

    Mat4 matrix = filled(7);
    matrix.set(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    EXPECT_THAT(matrix.m, transposed);
    EXPECT_EQ(matrix.getRow(1), b);
    EXPECT_EQ(matrix.getColumn(1), Vec4(1, 5, 9, 13));
    matrix.setRow(3, a);
    matrix.setColumn(0, d);
    EXPECT_THAT(matrix.m, ElementsAre(12, 13, 14, 15, 1, 5, 9, 1, 2, 6, 10, 2, 3, 7, 11, 3));
    Mat4 out = filled(7);
    matrix.transpose(out);
    matrix.transpose(matrix);
    expectSame(matrix, out);
    EXPECT_EQ(out.getRow(0), Vec4(12, 13, 14, 15));
    matrix.setZero();
    expectSame(matrix, filled(0));
    matrix.setIdentity();
    expectSame(matrix, Mat4::identity());
}

TEST(Mat4, ComparisonToleratesRoundingButNotNaN) {
    for (int i = 0; i < 16; ++i) {
        Mat4 matrix = filled(1);
        matrix.m[i] += 1e-13;
        EXPECT_TRUE(matrix == filled(1));
        matrix.m[i] += 1e-11;
        EXPECT_FALSE(matrix == filled(1));
        matrix.m[i] = kNaN;
        EXPECT_FALSE(matrix == matrix);
    }
}

TEST(Mat4, RightFactorActsFirst) {
    Mat4 move, grow;
    move.setTranslate(1, 2, 3);
    grow.setScale(2, 2, 2);
    EXPECT_EQ((move * grow) * Vec3(1), Vec3(3, 4, 5));
    EXPECT_EQ((grow * move) * Vec3(1), Vec3(4, 6, 8));
    expectSame(changed(move, [](Mat4& m) { m.scale(2, 2, 2); }), move * grow);
    expectSame(changed(grow, [](Mat4& m) { m.translate(1, 2, 3); }), grow * move);

    // The plane transform of the same name composes on the other side.
    forEachSeed(20, [](Random& random) {
        const auto number = [&] { return random.between(-2, 2); };
        const Affine a(number(), number(), number(), number(), number(), number());
        const Affine b(number(), number(), number(), number(), number(), number());
        Mat4 matrixA, matrixB;
        matrixA.setWithAffine(a);
        matrixB.setWithAffine(b);
        Affine chained(a), nested(a);
        chained.multiply(b);
        nested.premultiply(b);
        EXPECT_THAT((matrixB * matrixA).getAffine().m, Pointwise(testing::DoubleNear(1e-14), chained.m));
        EXPECT_THAT((matrixA * matrixB).getAffine().m, Pointwise(testing::DoubleNear(1e-14), nested.m));
        EXPECT_THAT(matrixA.getAffine().m, ElementsAreArray(a.m));
    });
}

TEST(Mat4, ArithmeticAgreesWithItsDefinitionAndSurvivesAliasing) {
    forEachSeed(50, [](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4();
        const Vec4 v = random.vec4();
        Mat4 product = filled(7), sum, difference;
        Mat4::mult(a, b, product);
        Mat4::add(a, b, sum);
        Mat4::subtract(a, b, difference);
        for (int row = 0; row < 4; ++row) {
            for (int column = 0; column < 4; ++column) {
                const int i = 4 * column + row;
                EXPECT_NEAR(product.m[i], a.getRow(row).dot(b.getColumn(column)), 1e-14);
                EXPECT_EQ(sum.m[i], a.m[i] + b.m[i]);
                EXPECT_EQ(difference.m[i], a.m[i] - b.m[i]);
                EXPECT_EQ((a * 3.0).m[i], a.m[i] * 3.0);
            }
        }
        EXPECT_TRUE((product * v).equal(a * (b * v), 1e-12));
        expectSame(a * b, product);
        expectSame(a + b, sum);
        expectSame(a - b, difference);
        expectSame(changed(a, [&](Mat4& m) { m.mult(b); }), product);
        expectSame(changed(a, [&](Mat4& m) { Mat4::mult(m, b, m); }), product);
        expectSame(changed(b, [&](Mat4& m) { Mat4::mult(a, m, m); }), product);
        expectSame(changed(a, [&](Mat4& m) { m.mult(m); }), a * a);
        expectSame(changed(a, [&](Mat4& m) { m.subtract(m); }), filled(0));
    });
}

TEST(Mat4, VectorFormsDifferInTheFourthComponent) {
    forEachSeed(50, [](Random& random) {
        Mat4 matrix = random.mat4();
        const Vec3 v = random.vec3();
        const Vec4 point = matrix * Vec4(v, 1.0), direction = matrix * Vec4(v, 0.0);
        expectNear(matrix.mult(v), point.getVec3(), 0.0);
        expectNear(matrix * v, point.getVec3(), 0.0);
        expectNear(matrix.multWithoutTranslate(v), direction.getVec3(), 0.0);
        const Vec3 projected = matrix.multAndProject(v);
        EXPECT_TRUE((projected * point.w).equal(point.getVec3(), 1e-12));
        Vec3 moved(v), pressed(v), turned(v), column, position;
        moved.applyMatrix4(matrix);
        expectNear(moved, point.getVec3(), 0.0);
        pressed.applyProjection(matrix);
        expectNear(pressed, projected, 1e-12 * projected.length());
        turned.transformDirection(matrix);
        expectNear(turned * direction.getVec3().length(), direction.getVec3(), 1e-12);
        column.setFromMatrixColumn(matrix, 1);
        expectNear(column, matrix.getColumn(1).getVec3(), 0.0);
        position.setFromMatrixPosition(matrix);
        expectNear(position, matrix.getColumn(3).getVec3(), 0.0);
    });
    Vec3 vanished(1, 2, 3);
    vanished.transformDirection(Mat4(false));
    EXPECT_EQ(vanished, Vec3(1, 0, 0));
    EXPECT_TRUE(std::isinf(filled(0).multAndProject(Vec3()).x) ||
                std::isnan(filled(0).multAndProject(Vec3()).x));
    // A direction must not meet an infinite translation.
    Mat4 far;
    far.setTranslate(std::numeric_limits<double>::infinity(), 0, 0);
    EXPECT_EQ(far.multWithoutTranslate(Vec3(1, 2, 3)), Vec3(1, 2, 3));
}

TEST(Mat4, RotationsAreRightHanded) {
    Mat4 x = filled(7), y = filled(7), z = filled(7);
    x.setXRotation(kPi / 2);
    y.setYRotation(kPi / 2);
    z.setZRotation(kPi / 2);
    EXPECT_EQ(x * Vec3(0, 1, 0), Vec3(0, 0, 1));
    EXPECT_EQ(y * Vec3(0, 0, 1), Vec3(1, 0, 0));
    EXPECT_EQ(z * Vec3(1, 0, 0), Vec3(0, 1, 0));
    forEachSeed(50, [](Random& random) {
        const double angle = random.between(-kPi, kPi);
        const Vec3 axis = random.vec3();
        Mat4 rotation = filled(7), back, about;
        rotation.setRotation(angle, axis);
        expectNear(rotation * axis, axis, 1e-14);
        Vec3 arm = random.vec3();
        arm.ortho(axis);
        Vec3 unit(axis);
        unit.normalize();
        expectNear(arm.cross(rotation * arm), unit * std::sin(angle), 1e-14);
        EXPECT_NEAR(arm.dot(rotation * arm), std::cos(angle), 1e-14);
        EXPECT_NEAR(rotation.determinant(), 1.0, 1e-14);
        back.setRotation(-angle, axis.x, axis.y, axis.z);
        expectNear(rotation * back, Mat4::identity(), 1e-14);
        // The zero axis counts as the x axis.
        back.setRotation(angle, Vec3());
        about.setXRotation(angle);
        expectNear(back, about, 1e-15);
        back.setRotation(angle, Vec3(0, 3, 0));
        about.setYRotation(angle);
        expectNear(back, about, 1e-15);
        back.setRotation(angle, Vec3(0, 0, 3));
        about.setZRotation(angle);
        expectNear(back, about, 1e-15);
    });
}

TEST(Mat4, ComposingInPlaceMultipliesByTheSetterOnTheRight) {
    forEachSeed(20, [](Random& random) {
        Mat4 old = random.mat4();
        const Vec3 v = random.vec3();
        const Vec4 v4(v, 5.0);
        const double angle = v.x;
        // The setter starts from sevens: nothing of the old value may survive in it.
        const auto expectBoth = [&](auto set, auto compose) {
            expectNear(changed(old, compose), old * changed(filled(7), set), 1e-14);
        };
        expectBoth([&](Mat4& m) { m.setTranslate(v); }, [&](Mat4& m) { m.translate(v); });
        expectBoth([&](Mat4& m) { m.setTranslate(v.x, v.y, v.z); }, [&](Mat4& m) { m.translate(v4); });
        expectBoth([&](Mat4& m) { m.setScale(v); }, [&](Mat4& m) { m.scale(v); });
        expectBoth([&](Mat4& m) { m.setScale(v.x, v.y, v.z); }, [&](Mat4& m) { m.scale(v4); });
        expectBoth([&](Mat4& m) { m.setRotation(angle, v); }, [&](Mat4& m) { m.rotate(angle, v4); });
        expectBoth([&](Mat4& m) { m.setRotation(angle, v); },
                   [&](Mat4& m) { m.rotate(angle, v.x, v.y, v.z); });
        expectBoth([&](Mat4& m) { m.setXRotation(angle); }, [&](Mat4& m) { m.rotateX(angle); });
        expectBoth([&](Mat4& m) { m.setYRotation(angle); }, [&](Mat4& m) { m.rotateY(angle); });
        expectBoth([&](Mat4& m) { m.setZRotation(angle); }, [&](Mat4& m) { m.rotateZ(angle); });
    });
}

TEST(Mat4, ProjectionsTakeTheirVolumeToClipSpace) {
    Mat4 frustum = filled(7), ortho = filled(7), perspective = filled(7), symmetric;
    frustum.setFrustum(-1, 3, -2, 4, 2, 10);
    EXPECT_EQ(frustum.multAndProject(Vec3(-1, -2, -2)), Vec3(-1, -1, -1));
    EXPECT_EQ(frustum.multAndProject(Vec3(15, 20, -10)), Vec3(1, 1, 1));
    EXPECT_EQ(frustum.getRow(3), Vec4(0, 0, -1, 0));
    EXPECT_EQ(frustum * Vec3(-1, -2, -2), Vec3(-2, -2, -2)); // no division
    ortho.setOrtho(-1, 3, 4, -2, 2, 10);
    EXPECT_EQ(ortho * Vec3(-1, -2, -2), Vec3(-1, -1, -1));
    EXPECT_EQ(ortho * Vec3(3, 4, -10), Vec3(1, 1, 1));
    EXPECT_EQ(ortho.getRow(3), Vec4(0, 0, 0, 1));
    perspective.setPerspective(kPi / 2, 1.5, 2, 10);
    symmetric.setFrustum(-3, 3, -2, 2, 2, 10);
    EXPECT_TRUE(perspective == symmetric);
    ortho.setOrtho(1, 1, 4, -2, 2, 10);
    EXPECT_TRUE(std::isinf(ortho.m[0]));
}

TEST(Mat4, LookAtWritesAnOrientationAndNothingElse) {
    const auto expectColumns = [](Mat4 matrix, Vec3 x, Vec3 y, Vec3 z) {
        expectNear(matrix.getColumn(0).getVec3(), x, 5e-7);
        expectNear(matrix.getColumn(1).getVec3(), y, 5e-7);
        expectNear(matrix.getColumn(2).getVec3(), z, 5e-7);
        EXPECT_EQ(matrix.getRow(3), Vec4(7, 7, 7, 7));
        EXPECT_EQ(matrix.getColumn(3), Vec4(7, 7, 7, 7));
    };
    Mat4 matrix = filled(7);
    matrix.setLookAt(Vec3(1, 2, 3), Vec3(), Vec3(0, 1, 0));
    expectColumns(matrix, Vec3(0.948683, 0, -0.316228), Vec3(-0.169031, 0.845154, -0.507093),
                  Vec3(0.267261, 0.534522, 0.801784));
    matrix.setLookAt(0, 5, 0, 0, 0, 0, 0, 1, 0); // up along the view
    expectColumns(matrix, Vec3(1, 0, 0), Vec3(0, 0, -1), Vec3(0, 1, 0));
    matrix.setLookAt(Vec3(1, 2, 3), Vec3(1, 2, 3), Vec3(0, 1, 0)); // no view at all
    expectColumns(matrix, Vec3(0, 0, -1), Vec3(0, 1, 0), Vec3(1, 0, 0));
}

TEST(Mat4, InverseUndoesTheMatrixUnlessItIsSingular) {
    forEachSeed(200, [](Random& random) {
        Mat4 matrix = random.mat4(), other = random.mat4(), inverse = filled(7);
        const double determinant = matrix.determinant();
        EXPECT_NEAR((matrix * other).determinant(), determinant * other.determinant(), 1e-10);
        ASSERT_TRUE(matrix.getInverse(inverse));
        const double tolerance = 1e-12 / std::min(1.0, std::abs(determinant));
        expectNear(matrix * inverse, Mat4::identity(), tolerance);
        expectNear(inverse * matrix, Mat4::identity(), tolerance);
        EXPECT_NEAR(inverse.determinant() * determinant, 1.0, tolerance);
        expectSame(changed(matrix, [](Mat4& m) { EXPECT_TRUE(m.getInverse(m)); }), inverse);

        // Whole numbers leave no rounding, so two equal rows make a determinant of exactly 0.
        for (double& element : matrix.m) {
            element = std::floor(element * 10);
        }
        const int from = static_cast<int>(random.between(0, 4)),
                  to = (from + 1 + static_cast<int>(random.between(0, 3))) % 4;
        matrix.setRow(to, matrix.getRow(from));
        EXPECT_FALSE(matrix.getInverse(inverse));
        expectSame(inverse, Mat4::identity());
        EXPECT_EQ(matrix.determinant(), 0.0);
    });
    Mat4 out;
    EXPECT_FALSE((Mat4::identity() * 1e-100).getInverse(out)); // the determinant underflows
    EXPECT_TRUE((Mat4::identity() * 1e-60).getInverse(out));   // tiny is not singular
    EXPECT_DOUBLE_EQ(out.m[0], 1e60);
    EXPECT_TRUE(filled(kNaN).getInverse(out));
}

TEST(Mat4, DecomposeUndoesCompose) {
    forEachSeed(100, [](Random& random) {
        const Vec3 anchor = random.vec3(), position = random.vec3();
        const Vec3 scale(random.between(0.1, 3), random.between(0.1, 3), random.between(0.1, 3));
        const Quaternion rotation = random.rotation();
        Mat4 matrix = filled(7), plain = filled(7);
        matrix.compose(anchor, position, rotation, scale);
        expectNear(matrix * anchor, position, 1e-13);
        plain.compose(position, rotation, scale);
        EXPECT_NEAR(plain.getMaxScaleOnAxis(), std::max({scale.x, scale.y, scale.z}), 1e-13);
        Mat4 unanchored = filled(7), stepwise;
        unanchored.compose(Vec3(), position, rotation, scale);
        expectNear(unanchored, plain, 1e-14);
        stepwise.setWithQuaternion(rotation);
        stepwise.scale(scale);
        stepwise.translate(anchor.negate());
        stepwise.position(stepwise.getColumn(3).getVec3() + position);
        expectNear(matrix, stepwise, 1e-13);

        Vec3 foundPosition = anchor, foundScale;
        Quaternion found;
        matrix.decompose(foundPosition, foundPosition, found, foundScale); // the anchor is an output too
        expectNear(foundPosition, position, 1e-13);
        expectNear(foundScale, scale, 1e-13);
        EXPECT_NEAR(std::abs(found.dot(rotation)), 1.0, 1e-13);
        plain.decompose(foundPosition, found, foundScale);
        expectNear(foundPosition, position, 0.0);

        // A mirrored axis shows as a negative x factor; the matrix still comes back.
        plain.compose(position, rotation, Vec3(scale.x, scale.y, -scale.z));
        plain.decompose(foundPosition, found, foundScale);
        expectNear(foundScale, Vec3(-scale.x, scale.y, scale.z), 1e-13);
        unanchored.compose(foundPosition, found, foundScale);
        expectNear(unanchored, plain, 1e-12);
    });
    Vec3 position(7), scale;
    Quaternion rotation;
    Mat4(false).decompose(position, rotation, scale);
    EXPECT_TRUE(position.isZero());
    EXPECT_TRUE(scale.equal(Vec3(1e-06), 0.0));
    EXPECT_EQ(rotation, Quaternion(0, 0, 0.5, 0));
    Mat4 anchored;
    anchored.compose(Vec3(5, 6, 7), Vec3(1, 2, 3), Quaternion(), Vec3(2));
    EXPECT_EQ(anchored.getColumn(3), Vec4(-9, -10, -11, 1));
}

TEST(Mat4, LayerFrameTurnsIntoTheCentredFrame) {
    Mat4 matrix = Mat4::getAEToGLConversionMatrix(1920, 1080);
    EXPECT_EQ(matrix * Vec3(0, 0, 0), Vec3(-960, 540, 0));
    EXPECT_EQ(matrix * Vec3(1920, 1080, 5), Vec3(960, -540, -5));
    EXPECT_EQ(matrix.getRow(3), Vec4(0, 0, 0, 1));
    matrix = filled(7);
    matrix.position(Vec3(1, 2, 3));
    EXPECT_THAT(matrix.m, ElementsAre(7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 1, 2, 3, 7));
    matrix.setWithAffine(Affine(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(matrix * Vec3(10, 100, 7), Vec3(315, 426, 7));
    EXPECT_EQ(matrix.getRow(3), Vec4(0, 0, 0, 1));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
