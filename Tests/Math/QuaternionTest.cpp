#include "Plugins/Shared/Math/Quaternion.h"

#include "Plugins/Shared/Math/Euler.h"
#include "Tests/Math/Random.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <type_traits>

namespace Tessaloom::BilateralBlur {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr Euler::RotationOrder kOrders[] = {Euler::XYZ, Euler::YZX, Euler::ZXY,
                                            Euler::XZY, Euler::YXZ, Euler::ZYX};

// What a caller could take for a new value changes the object and returns nothing.
static_assert(std::is_void_v<decltype(std::declval<Quaternion&>().conjugate())> &&
              std::is_void_v<decltype(std::declval<Quaternion&>().setInverse())> &&
              std::is_void_v<decltype(std::declval<Quaternion&>().multiply(Quaternion()))> &&
              std::is_void_v<decltype(std::declval<Quaternion&>().slerp(Quaternion(), 0.5))> &&
              std::is_void_v<decltype(std::declval<Vec3&>().applyQuaternion(Quaternion()))>);
template<class T>
concept Measures = requires(T q) {
    q.dot(q);
}
|| requires(T q) {
    q.length();
}
|| requires(T q) {
    q.getRotationAxis();
};
static_assert(Measures<Quaternion&> && !Measures<const Quaternion&>);

void expectNear(const Quaternion& actual, const Quaternion& expected, double tolerance) {
    const double a[] = {actual.x, actual.y, actual.z, actual.w};
    const double e[] = {expected.x, expected.y, expected.z, expected.w};
    EXPECT_THAT(a, testing::Pointwise(testing::DoubleNear(tolerance), e));
}

// Two quaternions of opposite sign are one rotation.
void expectSameRotation(Quaternion actual, const Quaternion& expected, double tolerance) {
    const double sign = actual.dot(expected) < 0.0 ? -1.0 : 1.0;
    expectNear(Quaternion(sign * actual.x, sign * actual.y, sign * actual.z, sign * actual.w), expected,
               tolerance);
}

Mat4 matrixOf(const Quaternion& q) {
    Mat4 matrix(false);
    matrix.setWithQuaternion(q);
    return matrix;
}

Quaternion fromEuler(const Euler& euler) {
    Quaternion q(7, 7, 7, 7);
    q.setWithEuler(euler);
    return q;
}

double& middleAngle(Euler& euler) {
    const bool x = euler.order == Euler::ZXY || euler.order == Euler::YXZ;
    const bool y = euler.order == Euler::XYZ || euler.order == Euler::ZYX;
    return x ? euler.x : y ? euler.y : euler.z;
}

TEST(Quaternion, ConstructorsAndSettersTreatScalarAndAxisDifferently) {
    EXPECT_EQ(Quaternion(), Quaternion(0, 0, 0, 1));
    EXPECT_EQ(Quaternion(1, 2, 3), Quaternion(1, 2, 3, 1));
    Quaternion q(0, 0, 0, 9);
    q.set(1, 2, 3);
    EXPECT_EQ(q, Quaternion(1, 2, 3, 9));
    expectNear(Quaternion(Vec3(0, 0, 2), 1.0), Quaternion(0, 0, 2 * std::sin(0.5), std::cos(0.5)), 1e-15);
    q.set(Vec3(0, 0, 2), 1.0);
    expectNear(q, Quaternion(0, 0, std::sin(0.5), std::cos(0.5)), 1e-15);
    EXPECT_NEAR(q.getRotationAngle(), 57.29577951308232, 1e-13);

    double array[] = {9, 1, 2, 3, 4, 9};
    q.setWithArray(array, 1);
    EXPECT_EQ(q, Quaternion(1, 2, 3, 4));
    double out[] = {0, 0, 0, 0, 0, 0};
    q.toArray(out, 1);
    EXPECT_THAT(out, testing::ElementsAre(0, 1, 2, 3, 4, 0));

    EXPECT_FALSE(Quaternion() == Quaternion(0, 0, 0, 1 + 1e-13)); // no tolerance
    EXPECT_TRUE(Quaternion(-0.0, 0, 0, 1) == Quaternion());
    EXPECT_TRUE(Quaternion(kNaN, 0, 0, 1) != Quaternion(kNaN, 0, 0, 1));
}

TEST(Quaternion, LengthAndInverse) {
    Quaternion q(1, 2, 2, 4);
    EXPECT_EQ(q.length(), 5.0);
    EXPECT_EQ(q.lengthSq(), 25.0);
    q.conjugate();
    EXPECT_EQ(q, Quaternion(-1, -2, -2, 4));
    q.setInverse();
    expectNear(q, Quaternion(0.2, 0.4, 0.4, 0.8), 1e-15);
    Quaternion zero(0, 0, 0, 0);
    zero.normalize();
    EXPECT_EQ(zero, Quaternion());
    EXPECT_EQ(zero.getRotationAxis(), Vec3(0, 0, 1));
    EXPECT_TRUE(std::isnan(Quaternion(0, 0, 0, 1.1).getRotationAngle()));
}

TEST(Quaternion, ProductsAndVectorsAgreeWithTheMatrix) {
    forEachSeed(100, [](Random& random) {
        const Quaternion a = random.rotation(), b = random.rotation();
        const Vec3 v = random.vec3(), axis = random.vec3();
        Quaternion product(a), reversed(a), squared(a), inverse(a);
        product.multiply(b);
        EXPECT_TRUE(matrixOf(product) == matrixOf(a) * matrixOf(b));
        reversed.premultiply(b);
        EXPECT_TRUE(matrixOf(reversed) == matrixOf(b) * matrixOf(a));
        squared.multiplyQuaternions(squared, squared);
        EXPECT_TRUE(matrixOf(squared) == matrixOf(a) * matrixOf(a));
        inverse.setInverse();
        inverse.multiply(a);
        expectNear(inverse, Quaternion(), 1e-15);

        Vec3 turned(v);
        turned.applyQuaternion(a);
        EXPECT_EQ(turned, matrixOf(a) * v);
        EXPECT_EQ(Quaternion::quaternionMulVec3(a, v), turned);

        const double angle = random.between(0.01, 3.1);
        Quaternion aboutAxis;
        aboutAxis.set(axis, angle);
        Mat4 rotation;
        rotation.setRotation(angle, axis);
        EXPECT_TRUE(matrixOf(aboutAxis) == rotation);
        EXPECT_NEAR(aboutAxis.getRotationAngle(), angle * 180 / kPi, 1e-10);
        EXPECT_TRUE((aboutAxis.getRotationAxis() * axis.length()).equal(axis, 1e-9));

        Vec3 from = random.vec3(), to = random.vec3();
        from.normalize();
        to.normalize();
        EXPECT_EQ(Quaternion::quaternionMulVec3(Quaternion(from, to), from), to);
        EXPECT_EQ(Quaternion::quaternionMulVec3(Quaternion(from, from.negate()), from), from.negate());
    });
    EXPECT_EQ(Quaternion(Vec3(1, 0, 0), Vec3(-1, 0, 0)), Quaternion(0, 1, 0, 0));
    EXPECT_EQ(Quaternion(Vec3(0, 0, 1), Vec3(0, 0, -1)), Quaternion(0, -1, 0, 0));
}

TEST(Quaternion, ComesBackFromItsMatrixInEveryBranch) {
    forEachSeed(200, [](Random& random) {
        const Quaternion rotation = random.rotation();
        Quaternion found;
        found.setWithMat4(matrixOf(rotation));
        expectSameRotation(found, rotation, 1e-14);
        // Of the two quaternions for the rotation the branch picks the one whose leading component is
        // positive.
        const bool obtuse = std::abs(rotation.w) < 0.5;
        EXPECT_GT(obtuse ? std::max({found.x, found.y, found.z},
                                    [](double a, double b) { return std::abs(a) < std::abs(b); })
                         : found.w,
                  0.0);
    });
    const double half = 0.0538382, small = 0.1076764, middle = 0.2153528, large = 0.9690874;
    for (const Quaternion& q :
         {Quaternion(large, small, middle, half), Quaternion(small, large, middle, half),
          Quaternion(middle, small, large, half), Quaternion(half, small, middle, large)}) {
        Quaternion found;
        found.setWithMat4(matrixOf(q));
        expectNear(found, q, 1e-7);
    }
}

TEST(Quaternion, SlerpRunsEvenlyAlongTheShorterArc) {
    forEachSeed(100, [](Random& random) {
        Quaternion a = random.rotation(), b = random.rotation();
        const double t = random.between(-0.5, 1.5);
        Quaternion moved(a), whole(a), self(a);
        moved.slerp(b, t);
        const double arc = std::acos(std::abs(a.dot(b)));
        EXPECT_NEAR(moved.length(), 1.0, 1e-12);
        EXPECT_NEAR(a.dot(moved), std::cos(t * arc), 1e-12);
        EXPECT_NEAR(std::abs(b.dot(moved)), std::abs(std::cos((1 - t) * arc)), 1e-12);
        EXPECT_EQ(Quaternion::lerp(a, b, t), moved);
        whole.slerp(b, 1.0);
        EXPECT_EQ(whole, b); // also where the arc was the longer one
        self.slerp(self, t);
        expectNear(self, a, 1e-15);
    });
    Quaternion q(0, 0, 0.6, 0.8);
    q.slerp(Quaternion(0, 0, -0.6, -0.8), 0.3);
    expectNear(q, Quaternion(0, 0, 0.6, 0.8), 1e-15);
    // Nearly equal ends give their average whatever t is; ends beyond unit length leave the start.
    const Quaternion near(Vec3(1, 0, 0), 1e-4);
    Quaternion start;
    start.slerp(near, 0.9);
    EXPECT_EQ(start, Quaternion(near.x * 0.5, 0, 0, (1.0 + near.w) * 0.5));
    start.set(0, 0, 0, 2);
    start.slerp(near, 0.9);
    EXPECT_EQ(start, Quaternion(0, 0, 0, 2));
    EXPECT_EQ(Quaternion::lerp(start, start, kNaN), start);
}

TEST(Euler, QuaternionIsTheProductOfTheAxesInOrder) {
    expectNear(fromEuler(Euler(0.3, -0.5, 0.7, Euler::XYZ)),
               Quaternion(0.05213240, -0.27944389, 0.29377717, 0.91262716), 5e-9);
    expectNear(fromEuler(Euler(0.3, -0.5, 0.7, Euler::ZYX)),
               Quaternion(0.21989575, -0.18014586, 0.36323738, 0.88727218), 5e-9);
    EXPECT_EQ(fromEuler(Euler(1, 2, 3, Euler::None)), Quaternion(0, 0, 0, 0));
    EXPECT_EQ(fromEuler(Euler(1, 2, 3, Euler::RotationOrder(7))), Quaternion(7, 7, 7, 7));
    forEachSeed(50, [](Random& random) {
        const Vec3 angles = random.vec3();
        const Quaternion axes[] = {Quaternion(Vec3(1, 0, 0), angles.x), Quaternion(Vec3(0, 1, 0), angles.y),
                                   Quaternion(Vec3(0, 0, 1), angles.z)};
        const char* const names[] = {"XYZ", "YZX", "ZXY", "XZY", "YXZ", "ZYX"};
        for (int i = 0; i < 6; ++i) {
            Quaternion product;
            for (const char* axis = names[i]; *axis != '\0'; ++axis) {
                product.multiply(axes[*axis - 'X']);
            }
            const Quaternion found = fromEuler(Euler(angles.x, angles.y, angles.z, kOrders[i]));
            expectNear(found, product, 4e-7);
            EXPECT_EQ(found.x, static_cast<float>(found.x)) << names[i] << " isn't in single precision";
        }
    });
}

TEST(Euler, AnglesComeBackInAllSixOrders) {
    forEachSeed(100, [](Random& random) {
        for (const Euler::RotationOrder order : kOrders) {
            SCOPED_TRACE(order);
            Euler angles(random.between(-kPi, kPi), random.between(-kPi, kPi), random.between(-kPi, kPi),
                         order);
            const Quaternion anyRotation = fromEuler(angles);
            Euler found;
            found.setWithQuaternion(anyRotation, order);
            expectSameRotation(fromEuler(found), anyRotation,
                               1e-4); // single precision, magnified near a pole

            middleAngle(angles) = random.between(-1.5, 1.5);
            found.setWithQuaternion(fromEuler(angles), order);
            EXPECT_NEAR(found.x, angles.x, 1e-5);
            EXPECT_NEAR(found.y, angles.y, 1e-5);
            EXPECT_NEAR(found.z, angles.z, 1e-5);
            EXPECT_EQ(found.order, order);

            // At a pole and in the band around it.
            const double offset = random.between(0, 1) < 0.5 ? 0.0 : random.between(-0.0012, 0.0012);
            middleAngle(angles) = (random.between(0, 1) < 0.5 ? -kPi / 2 : kPi / 2) + offset;
            found.setWithQuaternion(fromEuler(angles), order);
            expectSameRotation(fromEuler(found), fromEuler(angles), 1e-3);
            EXPECT_TRUE(found.x == 0.0 || found.y == 0.0 || found.z == 0.0);
        }
    });
    Euler pole;
    pole.setWithQuaternion(fromEuler(Euler(0.3, kPi / 2, 0.5, Euler::XYZ)));
    EXPECT_NEAR(pole.x, 0.8, 1e-6);
    EXPECT_EQ(pole.z, 0.0);
}

TEST(Euler, PoleBeginsAtTheSinglePrecisionSine) {
    // Each order with the element that holds the sine of its middle angle.
    const int elements[] = {8, 1, 6, 4, 9, 2};
    const double pole = 0.999999f;
    for (int i = 0; i < 6; ++i) {
        SCOPED_TRACE(kOrders[i]);
        // In a block of ones every outer angle is atan2(+-1, 1) until the pole, where one of them is 0.
        double ones[16];
        std::fill_n(ones, 16, 1.0);
        Mat4 matrix(ones, true);
        const auto anglesFor = [&](double sine) {
            matrix.m[elements[i]] = sine;
            Euler euler;
            euler.setWithMat4(matrix, kOrders[i]);
            return euler;
        };
        const auto atPole = [](const Euler& e) { return e.x == 0.0 || e.y == 0.0 || e.z == 0.0; };
        for (const double sign : {-1.0, 1.0}) {
            EXPECT_FALSE(atPole(anglesFor(sign * std::nextafter(pole, 0.0))));
            EXPECT_TRUE(atPole(anglesFor(sign * pole)));
            Euler beyond = anglesFor(sign * 1.5);
            EXPECT_DOUBLE_EQ(std::abs(middleAngle(beyond)), kPi / 2); // clamped
        }
        EXPECT_TRUE(atPole(anglesFor(kNaN)));
    }
}

TEST(Euler, OrderNoneKeepsTheStoredOrder) {
    Euler euler(1, 2, 3, Euler::ZXY);
    euler.set(4, 5, 6, Euler::None);
    EXPECT_EQ(euler, Euler(4, 5, 6, Euler::ZXY));
    euler.set(4, 5, 6, Euler::YXZ);
    EXPECT_EQ(euler.order, Euler::YXZ);
    euler.setWithMat4(Mat4());
    EXPECT_EQ(euler, Euler(0, 0, 0, Euler::YXZ));
    euler.set(4, 5, 6);
    euler.setWithMat4(Mat4(), Euler::RotationOrder(9));
    EXPECT_EQ(euler, Euler(4, 5, 6, Euler::RotationOrder(9)));
    EXPECT_EQ(Euler(1, 2, 3, Euler::None).order, Euler::None);
    EXPECT_TRUE(Euler(0, 0, 1e-13, Euler::XYZ) == Euler());
    EXPECT_FALSE(Euler(0, 0, 1e-11, Euler::XYZ) == Euler());
    EXPECT_FALSE(Euler(0, 0, 0, Euler::YZX) == Euler());
}

} // namespace
} // namespace Tessaloom::BilateralBlur
