#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Euler.h"
#include "Tests/Math/Random.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>
#include <type_traits>

namespace Tessaloom::BilateralBlur {
namespace {

using testing::ElementsAre;

constexpr double kPi = std::numbers::pi;
const Mat4 kSevens(Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), Vec4(7, 7, 7, 7), false);

// Mutators return nothing, so no call can be chained. Some readers want a changeable object even so.
static_assert(std::is_same_v<void (Quaternion::*)(), decltype(&Quaternion::conjugate)> &&
              std::is_same_v<void (Vec3::*)(const Mat4&), decltype(&Vec3::transformDirection)> &&
              std::is_same_v<double (Mat4::*)(), decltype(&Mat4::determinant)> &&
              std::is_same_v<bool (Mat4::*)(Mat4&) const, decltype(&Mat4::getInverse)> &&
              !std::is_constructible_v<Mat4, double*>);

// What `change` makes of a value.
template<class Value, class Change>
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

void expectNear(const Quaternion& a, const Quaternion& b, double tolerance) {
    EXPECT_TRUE(Vec4(a.x, a.y, a.z, a.w).equal(Vec4(b.x, b.y, b.z, b.w), tolerance));
}

TEST(Mat4, FlagPicksStorageOrderForNumbersAndRowsForVectors) {
    double counted[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const Vec4 a(0, 1, 2, 3), b(4, 5, 6, 7), c(8, 9, 10, 11), d(12, 13, 14, 15);
    const auto stored = testing::ElementsAreArray(counted);
    const auto transposed = ElementsAre(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    EXPECT_THAT(Mat4(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, false).m, transposed);
    EXPECT_THAT(Mat4(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, true).m, stored);
    EXPECT_THAT(Mat4(counted, false).m, transposed);
    EXPECT_THAT(Mat4(counted, true).m, stored);
    EXPECT_THAT(Mat4(a, b, c, d, false).m, stored);
    Mat4 matrix(a, b, c, d, true);
    EXPECT_THAT(matrix.m, transposed);
    matrix.setRow(3, matrix.getRow(0));
    matrix.setColumn(2, matrix.getColumn(1));
    matrix.transpose(matrix);
    EXPECT_THAT(matrix.m, ElementsAre(0, 1, 1, 3, 4, 5, 5, 7, 8, 9, 9, 11, 0, 1, 1, 3));
}

TEST(Mat4, ProductAgreesWithItsDefinitionAndSurvivesAliasing) {
    forEachSeed(20, [](Random& random) {
        Mat4 a = random.mat4(), b = random.mat4(), product = a * b;
        for (int i = 0; i < 16; ++i) {
            EXPECT_NEAR(product.m[i], a.getRow(i % 4).dot(b.getColumn(i / 4)), 1e-14);
            EXPECT_EQ((a + b * 2.0 - a).m[i], (a.m[i] + b.m[i] * 2.0) - a.m[i]);
            EXPECT_EQ(changed(a, [&](Mat4& m) { m.m[i] += 1e-13; }), a);
            EXPECT_NE(changed(a, [&](Mat4& m) { m.m[i] += 1e-11; }), a);
            EXPECT_NE(changed(a, [&](Mat4& m) { m.m[i] = NAN; }), a);
        }
        EXPECT_EQ(changed(a, [&](Mat4& m) { Mat4::mult(m, b, m); }), product);
        EXPECT_EQ(changed(b, [&](Mat4& m) { Mat4::mult(a, m, m); }), product);
        EXPECT_EQ(changed(a, [&](Mat4& m) { m.mult(m); }), a * a);
        // The plane transform of the same name composes on the other side.
        const Affine planeA = a.getAffine(), planeB = b.getAffine();
        a.setWithAffine(planeA);
        b.setWithAffine(planeB);
        Affine chained(planeA), expected = (b * a).getAffine();
        chained.multiply(planeB);
        EXPECT_TRUE(chained == expected);
    });
    EXPECT_EQ(changed(kSevens, [](Mat4& m) { m.setWithAffine(Affine(true)); }), Mat4());
}

TEST(Mat4, VectorFormsDifferInTheFourthComponent) {
    forEachSeed(20, [](Random& random) {
        Mat4 matrix = random.mat4();
        const Vec3 v = random.vec3();
        const Vec4 point = matrix * Vec4(v, 1.0);
        const Vec3 direction = (matrix * Vec4(v, 0.0)).getVec3();
        EXPECT_NEAR(point.w, matrix.getRow(3).dot(Vec4(v, 1.0)), 1e-14);
        EXPECT_EQ(matrix * v, point.getVec3());
        EXPECT_EQ(matrix.multWithoutTranslate(v), direction);
        EXPECT_EQ(matrix.multAndProject(v) * point.w, point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyMatrix4(matrix); }), point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyProjection(matrix); }) * point.w, point.getVec3());
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.transformDirection(matrix); }) * direction.length(), direction);
        const Vec3 y = matrix.getColumn(1).getVec3(), offset = matrix.getColumn(3).getVec3();
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.setFromMatrixColumn(matrix, 1); }), y);
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.setFromMatrixPosition(matrix); }), offset);
    });
    EXPECT_EQ(changed(Vec3(1, 2, 3), [](Vec3& u) { u.transformDirection(Mat4(false)); }), Vec3(1, 0, 0));
}

TEST(Mat4, RotationsAreRightHandedAndComposeOnTheRight) {
    forEachSeed(20, [](Random& random) {
        const double angle = random.between(-kPi, kPi);
        const Vec3 v = random.vec3();
        const Vec4 v4(v, 5.0);
        Vec3 arm = random.vec3();
        Mat4 old = random.mat4(), rotation;
        arm.ortho(v);
        rotation.setRotation(angle, v);
        EXPECT_EQ(rotation * v, v);
        EXPECT_EQ(arm.cross(rotation * arm) * v.length(), v * std::sin(angle));
        EXPECT_NEAR(arm.dot(rotation * arm), std::cos(angle), 1e-14);
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
    EXPECT_EQ(frustum.multAndProject(Vec3(-1, -2, -2)), Vec3(-1, -1, -1));
    EXPECT_EQ(frustum.multAndProject(Vec3(15, 20, -10)), Vec3(1, 1, 1));
    ortho.setOrtho(-1, 3, 4, -2, 2, 10);
    EXPECT_EQ(ortho * Vec4(-1, -2, -2, 1), Vec4(-1, -1, -1, 1));
    EXPECT_EQ(ortho * Vec4(3, 4, -10, 1), Vec4(1, 1, 1, 1));
    perspective.setPerspective(kPi / 2, 1.5, 2, 10);
    frustum.setFrustum(-3, 3, -2, 2, 2, 10);
    EXPECT_EQ(perspective, frustum);
    Mat4 layer = Mat4::getAEToGLConversionMatrix(1920, 1080);
    EXPECT_EQ(layer * Vec4(1920, 1080, 5, 1), Vec4(960, -540, -5, 1));
    camera.setLookAt(Vec3(3, 1, 0), Vec3(0, 1, 0), Vec3(0, 2, 0)); // from the right
    EXPECT_THAT(camera.m, ElementsAre(0, 0, -1, 7, 0, 1, 0, 7, 1, 0, 0, 7, 7, 7, 7, 7));
    camera.setLookAt(0, 5, 0, 0, 0, 0, 0, 1, 0); // up along the view
    EXPECT_THAT(camera.m, ElementsAre(1, 0, 0, 7, 0, 0, -1, 7, 0, 1, 0, 7, 7, 7, 7, 7));
}

TEST(Mat4, InverseUndoesTheMatrixUnlessItIsSingular) {
    Mat4 inverse;
    forEachSeed(200, [&](Random& random) {
        Mat4 matrix = random.mat4();
        ASSERT_TRUE(matrix.getInverse(inverse));
        EXPECT_NEAR(inverse.determinant() * matrix.determinant(), 1.0, 1e-9);
        EXPECT_EQ(changed(matrix, [](Mat4& m) { EXPECT_TRUE(m.getInverse(m)); }), inverse);
        const Mat4 product = inverse * matrix;
        EXPECT_THAT(product.m, testing::Pointwise(testing::DoubleNear(1e-10), Mat4().m));
        // Whole numbers leave no rounding, so two equal rows make a determinant of exactly 0.
        std::transform(matrix.m, matrix.m + 16, matrix.m, [](double v) { return std::floor(v * 10); });
        const int row = static_cast<int>(random.between(0, 4)), step = static_cast<int>(random.between(1, 4));
        matrix.setRow((row + step) % 4, matrix.getRow(row));
        EXPECT_FALSE(matrix.getInverse(inverse));
        EXPECT_EQ(inverse, Mat4::identity());
    });
    EXPECT_FALSE((Mat4() * 1e-100).getInverse(inverse)); // the determinant underflows
    EXPECT_TRUE((Mat4() * 1e-60).getInverse(inverse));   // tiny is not singular
    EXPECT_TRUE((Mat4() * NAN).getInverse(inverse));
}

TEST(Mat4, DecomposeUndoesCompose) {
    Vec3 position, scale;
    Quaternion rotation;
    forEachSeed(50, [&](Random& random) {
        const Vec3 anchor = random.vec3(), target = random.vec3();
        const Vec3 factors(random.between(0.1, 3), random.between(0.1, 3), random.between(0.1, 3));
        const Quaternion turn = random.rotation();
        Mat4 matrix = kSevens, plain = kSevens, expected = matrixOf(turn);
        expected.scale(factors);
        expected.position(target);
        plain.compose(target, turn, factors);
        EXPECT_EQ(plain, expected);
        expected.translate(anchor.negate());
        matrix.compose(anchor, target, turn, factors);
        EXPECT_EQ(matrix, expected);
        EXPECT_NEAR(plain.getMaxScaleOnAxis(), std::max({factors.x, factors.y, factors.z}), 1e-13);
        position = anchor;
        matrix.decompose(position, position, rotation, scale); // the anchor is an output too
        EXPECT_TRUE(position == target && scale == factors);
        EXPECT_NEAR(std::abs(rotation.dot(turn)), 1.0, 1e-13);
        // A mirrored axis shows as a negative x factor; the matrix still comes back.
        plain.compose(target, turn, Vec3(factors.x, factors.y, -factors.z));
        plain.decompose(position, rotation, scale);
        EXPECT_EQ(scale, Vec3(-factors.x, factors.y, factors.z));
        EXPECT_EQ(changed(kSevens, [&](Mat4& m) { m.compose(position, rotation, scale); }), plain);
    });
    Mat4(false).decompose(position, rotation, scale);
    EXPECT_TRUE(position.isZero() && scale.equal(Vec3(1e-06), 0.0) && rotation == Quaternion(0, 0, 0.5, 0));
}

TEST(Quaternion, SettersAndDegenerateValues) {
    double array[] = {9, 1, 2, 2, 4, 9};
    Quaternion q(0, 0, 0, 9);
    q.set(1, 2, 3); // w stays, while the constructor sets it
    EXPECT_TRUE(q == Quaternion(1, 2, 3, 9) && Quaternion(1, 2, 3) == Quaternion(1, 2, 3, 1));
    q.set(Vec3(0, 0, 2), 1.0); // normalises the axis, while the constructor doesn't
    expectNear(q, Quaternion(0, 0, std::sin(0.5), std::cos(0.5)), 1e-15);
    expectNear(Quaternion(Vec3(0, 0, 2), 1.0), Quaternion(0, 0, 2 * std::sin(0.5), std::cos(0.5)), 1e-15);
    q.setWithArray(array, 1);
    q.conjugate();
    EXPECT_EQ(q, Quaternion(-1, -2, -2, 4));
    q.setInverse();
    q.toArray(array, 1);
    EXPECT_THAT(array, testing::Pointwise(testing::DoubleNear(1e-15), {9.0, 0.2, 0.4, 0.4, 0.8, 9.0}));
    q.set(0, 0, 0, 0);
    q.normalize();
    EXPECT_TRUE(q == Quaternion() && q.getRotationAxis() == Vec3(0, 0, 1));
    EXPECT_FALSE(q == Quaternion(0, 0, 0, 1 + 1e-13)); // no tolerance
    EXPECT_TRUE(q == Quaternion(-0.0, 0, 0) && Quaternion(NAN, 0, 0) != Quaternion(NAN, 0, 0));
    EXPECT_EQ(Quaternion(Vec3(1, 0, 0), Vec3(-1, 0, 0)), Quaternion(0, 1, 0, 0));
    EXPECT_EQ(Quaternion(Vec3(0, 0, 1), Vec3(0, 0, -1)), Quaternion(0, -1, 0, 0));
}

TEST(Quaternion, AgreesWithTheMatrix) {
    forEachSeed(100, [](Random& random) {
        const Quaternion a = random.rotation(), b = random.rotation();
        const auto unit = [&] { return changed(random.vec3(), [](Vec3& u) { u.normalize(); }); };
        const Vec3 v = random.vec3(), from = unit(), to = unit(), turned = matrixOf(a) * v;
        EXPECT_EQ(matrixOf(changed(a, [&](Quaternion& q) { q.multiply(b); })), matrixOf(a) * matrixOf(b));
        EXPECT_EQ(matrixOf(changed(a, [&](Quaternion& q) { q.premultiply(b); })), matrixOf(b) * matrixOf(a));
        EXPECT_EQ(matrixOf(changed(a, [&](Quaternion& q) { q.multiply(q); })), matrixOf(a) * matrixOf(a));
        EXPECT_EQ(changed(v, [&](Vec3& u) { u.applyQuaternion(a); }), turned);
        EXPECT_EQ(Quaternion::quaternionMulVec3(a, v), turned);
        EXPECT_EQ(Quaternion::quaternionMulVec3(Quaternion(from, to), from), to);
        EXPECT_EQ(Quaternion::quaternionMulVec3(Quaternion(from, from.negate()), from), from.negate());
        const double angle = random.between(0.1, 3.1);
        Quaternion found = changed(Quaternion(), [&](Quaternion& q) { q.set(v, angle); });
        EXPECT_EQ(matrixOf(found), changed(Mat4(), [&](Mat4& m) { m.setRotation(angle, v); }));
        EXPECT_NEAR(found.getRotationAngle(), angle * 180 / kPi, 1e-10);
        EXPECT_EQ(found.getRotationAxis() * v.length(), v);
        // Of the two quaternions for a rotation the branch picks the one whose leading component is positive.
        found.setWithMat4(matrixOf(a));
        EXPECT_NEAR(std::abs(found.dot(a)), 1.0, 1e-14);
        const auto smaller = [](double left, double right) { return std::abs(left) < std::abs(right); };
        EXPECT_GT(std::abs(a.w) > 0.5 ? found.w : std::max({found.x, found.y, found.z}, smaller), 0.0);
    });
}

TEST(Quaternion, SlerpRunsEvenlyAlongTheShorterArc) {
    forEachSeed(50, [](Random& random) {
        Quaternion a = random.rotation(), b = random.rotation();
        const double t = random.between(-0.5, 1.5), arc = std::acos(std::abs(a.dot(b)));
        Quaternion moved = Quaternion::lerp(a, b, t);
        EXPECT_NEAR(moved.length(), 1.0, 1e-12);
        EXPECT_NEAR(a.dot(moved), std::cos(t * arc), 1e-12);
        EXPECT_NEAR(std::abs(b.dot(moved)), std::abs(std::cos((1 - t) * arc)), 1e-12);
        EXPECT_EQ(Quaternion::lerp(a, b, 1.0), b); // also where the arc was the longer one
        expectNear(changed(a, [&](Quaternion& q) { q.slerp(q, t); }), a, 1e-15);
    });
    // Nearly equal ends give their average whatever t is; ends beyond unit length leave the start.
    const Quaternion near(Vec3(1, 0, 0), 1e-4), mean(near.x * 0.5, 0, 0, (1 + near.w) * 0.5),
        large(0, 0, 0, 2);
    EXPECT_EQ(Quaternion::lerp(Quaternion(), near, 0.9), mean);
    EXPECT_EQ(Quaternion::lerp(large, near, 0.9), large);
}

// Each order with its axes as places in a vector and the element that holds the sine of the middle angle.
struct OrderRow {
    Euler::RotationOrder order;
    int axes[3];
    int element;
};
constexpr OrderRow kOrders[] = {{Euler::XYZ, {0, 1, 2}, 8}, {Euler::YZX, {1, 2, 0}, 1},
                                {Euler::ZXY, {2, 0, 1}, 6}, {Euler::XZY, {0, 2, 1}, 4},
                                {Euler::YXZ, {1, 0, 2}, 9}, {Euler::ZYX, {2, 1, 0}, 2}};

TEST(Euler, AnglesAndRotationComeBackInAllSixOrders) {
    forEachSeed(100, [](Random& random) {
        for (const OrderRow& row : kOrders) {
            SCOPED_TRACE(row.order);
            const auto angle = [&] { return random.between(-kPi, kPi); };
            double angles[3] = {angle(), angle(), angle()};
            // Sends the angles there and back; the rotation must be the product of the three axes' own.
            const auto roundTrip = [&](double tolerance) {
                const Quaternion rotation = fromEuler(Euler(angles[0], angles[1], angles[2], row.order));
                Quaternion product;
                for (const int axis : row.axes) {
                    product.multiply(Quaternion(Vec3(axis == 0, axis == 1, axis == 2), angles[axis]));
                }
                expectNear(rotation, product, 4e-7);
                Euler found;
                found.setWithQuaternion(rotation, row.order);
                const Mat4 actual = matrixOf(fromEuler(found)), expected = matrixOf(rotation);
                EXPECT_THAT(actual.m, testing::Pointwise(testing::DoubleNear(tolerance), expected.m));
                return Vec3(found.x, found.y, found.z);
            };
            roundTrip(1e-4); // single precision, magnified near a pole
            angles[row.axes[1]] = random.between(-1.5, 1.5);
            EXPECT_TRUE(roundTrip(1e-5).equal(Vec3(angles[0], angles[1], angles[2]), 1e-5));
            // In the band around a pole one angle is dropped, at the price of twice the distance from it.
            angles[row.axes[1]] = random.between(-1, 1) < 0 ? -kPi / 2 : kPi / 2;
            roundTrip(1e-3);
            angles[row.axes[1]] += random.between(-0.0014, 0.0014);
            roundTrip(2.9e-3);
            // In a block of ones every outer angle is atan2(+-1, 1) until the band, where one of them is 0.
            const auto atPole = [&](double sine) {
                Mat4 matrix(Vec4(1, 1, 1, 1), Vec4(1, 1, 1, 1), Vec4(1, 1, 1, 1), Vec4(), false);
                matrix.m[row.element] = sine;
                const Euler euler = changed(Euler(), [&](Euler& e) { e.setWithMat4(matrix, row.order); });
                return euler.x == 0.0 || euler.y == 0.0 || euler.z == 0.0;
            };
            const double pole = 0.999999f, below = std::nextafter(pole, 0.0);
            EXPECT_TRUE(atPole(pole) && atPole(-pole) && atPole(NAN) && !atPole(below) && !atPole(-below));
        }
    });
    expectNear(fromEuler(Euler(0.3, -0.5, 0.7, Euler::XYZ)),
               Quaternion(0.05213240, -0.27944389, 0.29377717, 0.91262716), 5e-9);
}

TEST(Euler, OrderNoneKeepsTheStoredOrder) {
    Euler euler(1, 2, 3, Euler::ZXY);
    euler.setWithMat4(Mat4());
    EXPECT_EQ(euler, Euler(0, 0, 1e-13, Euler::ZXY));
    EXPECT_NE(euler, Euler(0, 0, 1e-11, Euler::ZXY));
    euler.set(4, 5, 6);
    EXPECT_EQ(euler.order, Euler::ZXY);
    euler.setWithMat4(Mat4(), Euler::RotationOrder(9));
    EXPECT_EQ(euler, Euler(4, 5, 6, Euler::RotationOrder(9)));
    EXPECT_EQ(fromEuler(euler), Quaternion(7, 7, 7, 7));
    EXPECT_EQ(fromEuler(Euler(1, 2, 3, Euler::None)), Quaternion(0, 0, 0, 0));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
