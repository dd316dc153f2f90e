#include "Plugins/Shared/Math/Euler.h"

#include "Plugins/Shared/Math/Float.h"
#include "Plugins/Shared/Math/Mat4.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

namespace {

/// Sine of the middle angle from which on the outer axes count as one. The single-precision value is meant.
constexpr double kPoleSine = 0.999999f;

double arcSine(double sine) {
    return std::asin(clampValue(sine, -1.0, 1.0));
}

} // namespace

Euler::Euler() : Euler(0.0, 0.0, 0.0, XYZ) {}

Euler::Euler(double x, double y, double z, RotationOrder order) : x(x), y(y), z(z), order(order) {}

void Euler::set(double x, double y, double z, RotationOrder order) {
    *this = Euler(x, y, z, order == None ? this->order : order);
}

void Euler::setWithMat4(const Mat4& matrix, RotationOrder order) {
    if (order != None)
        this->order = order;
    const double* const m = matrix.m;
    // NaN counts as a pole, so the test asks for what is away from one.
    const auto awayFromPole = [](double sine) { return absValue(sine) < kPoleSine; };
    // The product in each order has the sine of its middle angle alone in one element: plain where the three
    // axes follow in their cyclic sequence, negated where they run against it.
    switch (this->order) {
    case XYZ:
        y = arcSine(m[8]);
        if (awayFromPole(m[8])) {
            x = std::atan2(-m[9], m[10]);
            z = std::atan2(-m[4], m[0]);
        } else {
            x = std::atan2(m[6], m[5]);
            z = 0.0;
        }
        break;
    case YZX:
        z = arcSine(m[1]);
        if (awayFromPole(m[1])) {
            x = std::atan2(-m[9], m[5]);
            y = std::atan2(-m[2], m[0]);
        } else {
            x = 0.0;
            y = std::atan2(m[8], m[10]);
        }
        break;
    case ZXY:
        x = arcSine(m[6]);
        if (awayFromPole(m[6])) {
            y = std::atan2(-m[2], m[10]);
            z = std::atan2(-m[4], m[5]);
        } else {
            y = 0.0;
            z = std::atan2(m[1], m[0]);
        }
        break;
    case XZY:
        z = -arcSine(m[4]);
        if (awayFromPole(m[4])) {
            x = std::atan2(m[6], m[5]);
            y = std::atan2(m[8], m[0]);
        } else {
            x = std::atan2(-m[9], m[10]);
            y = 0.0;
        }
        break;
    case YXZ:
        x = -arcSine(m[9]);
        if (awayFromPole(m[9])) {
            y = std::atan2(m[8], m[10]);
            z = std::atan2(m[1], m[5]);
        } else {
            y = std::atan2(-m[2], m[0]);
            z = 0.0;
        }
        break;
    case ZYX:
        y = -arcSine(m[2]);
        if (awayFromPole(m[2])) {
            x = std::atan2(m[6], m[10]);
            z = std::atan2(m[1], m[0]);
        } else {
            x = 0.0;
            z = std::atan2(-m[4], m[5]);
        }
        break;
    default:
        break;
    }
}

void Euler::setWithQuaternion(const Quaternion& quaternion, RotationOrder order) {
    Mat4 matrix;
    matrix.setWithQuaternion(quaternion);
    setWithMat4(matrix, order);
}

bool Euler::operator==(const Euler& other) const {
    return equalWithin(x, other.x, kEpsilon) && equalWithin(y, other.y, kEpsilon) &&
           equalWithin(z, other.z, kEpsilon) && order == other.order;
}

} // namespace Tessaloom::BilateralBlur
