#include "Plugins/Shared/Math/Quaternion.h"

#include "Plugins/Shared/Math/Euler.h"
#include "Plugins/Shared/Math/Float.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/SineCosine.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

namespace {

/// Sine of the half arc under which `slerp` averages instead of dividing by it.
constexpr double kShortArc = 0.001;

/// The factor, 1 or -1, of the second term of x, y, z and w for each order of the axes, by its number.
constexpr float kEulerSigns[7][4] = {
    {0.0f, 0.0f, 0.0f, 0.0f},   // None
    {1.0f, -1.0f, 1.0f, -1.0f}, // XYZ
    {1.0f, 1.0f, -1.0f, -1.0f}, // YZX
    {-1.0f, 1.0f, 1.0f, -1.0f}, // ZXY
    {-1.0f, -1.0f, 1.0f, 1.0f}, // XZY
    {1.0f, -1.0f, -1.0f, 1.0f}, // YXZ
    {-1.0f, 1.0f, -1.0f, 1.0f}  // ZYX
};

struct FloatSineCosine {
    float sine;
    float cosine;
};

FloatSineCosine narrow(SineCosine both) {
    return {static_cast<float>(both.sine), static_cast<float>(both.cosine)};
}

} // namespace

Quaternion::Quaternion(const Vec3& axis, double angle) {
    const auto [s, c] = sineCosine(angle / 2.0);
    set(axis.x * s, axis.y * s, axis.z * s, c);
}

Quaternion::Quaternion(const Vec3& from, const Vec3& to) {
    setWithDirection(from, to);
}

void Quaternion::set(double x, double y, double z) {
    set(x, y, z, w);
}

void Quaternion::set(double x, double y, double z, double w) {
    this->x = x;
    this->y = y;
    this->z = z;
    this->w = w;
}

void Quaternion::set(const Vec3& axis, double angle) {
    Vec3 unit(axis);
    unit.normalize();
    *this = Quaternion(unit, angle);
}

void Quaternion::setWithMat4(const Mat4& matrix) {
    const double* const m = matrix.m;
    const double trace = m[0] + m[5] + m[10];
    if (trace > 0.0) {
        const double s = 0.5 / std::sqrt(trace + 1.0);
        set((m[6] - m[9]) * s, (m[8] - m[2]) * s, (m[1] - m[4]) * s, 0.25 / s);
    } else if (m[0] > m[5] && m[0] > m[10]) {
        const double s = 2.0 * std::sqrt(1.0 + m[0] - m[5] - m[10]);
        set(0.25 * s, (m[4] + m[1]) / s, (m[8] + m[2]) / s, (m[6] - m[9]) / s);
    } else if (m[5] > m[10]) {
        const double s = 2.0 * std::sqrt(1.0 + m[5] - m[0] - m[10]);
        set((m[4] + m[1]) / s, 0.25 * s, (m[9] + m[6]) / s, (m[8] - m[2]) / s);
    } else {
        const double s = 2.0 * std::sqrt(1.0 + m[10] - m[0] - m[5]);
        set((m[8] + m[2]) / s, (m[9] + m[6]) / s, 0.25 * s, (m[1] - m[4]) / s);
    }
}

void Quaternion::setWithEuler(const Euler& euler) {
    if (euler.order > Euler::ZYX)
        return;
    if (euler.order == Euler::None) {
        set(0.0, 0.0, 0.0, 0.0);
        return;
    }
    // Callers compare with the rounding of single precision, so everything behind the sines runs in it.
    const auto [s1, c1] = narrow(sineCosine(euler.x / 2.0));
    const auto [s2, c2] = narrow(sineCosine(euler.y / 2.0));
    const auto [s3, c3] = narrow(sineCosine(euler.z / 2.0));
    const float* const sign = kEulerSigns[euler.order];
    set(s1 * c2 * c3 + sign[0] * (c1 * s2 * s3), c1 * s2 * c3 + sign[1] * (s1 * c2 * s3),
        c1 * c2 * s3 + sign[2] * (s1 * s2 * c3), c1 * c2 * c3 + sign[3] * (s1 * s2 * s3));
}

void Quaternion::setWithDirection(const Vec3& from, const Vec3& to) {
    double r = from.dot(to) + 1.0;
    Vec3 vectorPart;
    if (r < kEpsilon) {
        // Opposite vectors have no cross product to turn about; of two perpendiculars the longer-legged one
        // is taken.
        r = 0.0;
        if (absValue(from.x) > absValue(from.z))
            vectorPart.set(-from.y, from.x, 0.0);
        else
            vectorPart.set(0.0, -from.z, from.y);
    } else {
        vectorPart = from.cross(to);
    }
    set(vectorPart.x, vectorPart.y, vectorPart.z, r);
    normalize();
}

void Quaternion::setWithArray(double* array, int offset) {
    set(array[offset], array[offset + 1], array[offset + 2], array[offset + 3]);
}

void Quaternion::toArray(double* array, int offset) const {
    array[offset] = x;
    array[offset + 1] = y;
    array[offset + 2] = z;
    array[offset + 3] = w;
}

void Quaternion::normalize() {
    const double l = length();
    if (l == 0.0) {
        *this = Quaternion();
        return;
    }
    const double r = 1.0 / l;
    set(x * r, y * r, z * r, w * r);
}

void Quaternion::setInverse() {
    conjugate();
    normalize();
}

void Quaternion::conjugate() {
    set(-x, -y, -z);
}

double Quaternion::getRotationAngle() {
    return 2.0 * std::acos(w) * kRadToDeg;
}

Vec3 Quaternion::getRotationAxis() {
    const double d = 1.0 - w * w;
    if (d < kEpsilon)
        return Vec3(0.0, 0.0, 1.0);
    return Vec3(x, y, z) * (1.0 / std::sqrt(d));
}

void Quaternion::multiply(const Quaternion& other) {
    multiplyQuaternions(*this, other);
}

void Quaternion::premultiply(const Quaternion& other) {
    multiplyQuaternions(other, *this);
}

void Quaternion::multiplyQuaternions(const Quaternion& a, const Quaternion& b) {
    set(a.x * b.w + a.w * b.x + a.y * b.z - a.z * b.y, a.y * b.w + a.w * b.y + a.z * b.x - a.x * b.z,
        a.z * b.w + a.w * b.z + a.x * b.y - a.y * b.x, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z);
}

Vec3 Quaternion::quaternionMulVec3(const Quaternion& q, const Vec3& v) {
    const Vec3 u(q.x, q.y, q.z);
    const Vec3 t = u.cross(v);
    const Vec3 s = u.cross(t);
    return v + (t * q.w + s) * 2.0;
}

void Quaternion::slerp(const Quaternion& target, double t) {
    if (t == 1.0) {
        *this = target;
        return;
    }
    if (t == 0.0)
        return;
    Quaternion b(target);
    double c = dot(b);
    if (c < 0.0) {
        b = Quaternion(-b.x, -b.y, -b.z, -b.w);
        c = -c;
    }
    if (c >= 1.0)
        return;
    const double h = std::sqrt(1.0 - c * c);
    if (absValue(h) < kShortArc) {
        set((x + b.x) * 0.5, (y + b.y) * 0.5, (z + b.z) * 0.5, (w + b.w) * 0.5);
        return;
    }
    const double half = std::atan2(h, c);
    const double ra = std::sin((1.0 - t) * half) / h, rb = std::sin(half * t) / h;
    set(x * ra + b.x * rb, y * ra + b.y * rb, z * ra + b.z * rb, w * ra + b.w * rb);
}

Quaternion Quaternion::lerp(const Quaternion& a, const Quaternion& b, double t) {
    Quaternion result(a);
    if (a != b)
        result.slerp(b, t);
    return result;
}

} // namespace Tessaloom::BilateralBlur
