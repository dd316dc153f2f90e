#pragma once

#include "Plugins/Shared/Math/Vec3.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {

class Euler;
class Mat4;

/// A rotation as a quaternion, with `w` the scalar.
///
/// A rotation by angle a about the unit axis u is (u sin(a/2), cos(a/2)). The product a b is Hamilton's: b
/// acts first on a vector, and the matrix of a b is the matrix of a times that of b. Nothing keeps the length
/// at 1 except the operations that say so. Angles are radians, but for `getRotationAngle`. Mutators return
/// nothing; some operations that change nothing are not declared const. Nothing here throws or allocates.
class Quaternion {
public:
    double x; ///< first vector component
    double y; ///< second vector component
    double z; ///< third vector component
    double w; ///< scalar component

    /// The identity rotation, (0, 0, 0, 1).
    Quaternion() : Quaternion(0.0, 0.0, 0.0, 1.0) {}

    /// (x, y, z, 1.0), whatever its length.
    Quaternion(double x, double y, double z) : Quaternion(x, y, z, 1.0) {}

    /// The given components.
    Quaternion(double x, double y, double z, double w) : x(x), y(y), z(z), w(w) {}

    /// The rotation by `angle` about `axis`, which must have unit length: unlike `set`, this doesn't
    /// normalise.
    Quaternion(const Vec3& axis, double angle);

    /// The rotation of `setWithDirection`.
    Quaternion(const Vec3& from, const Vec3& to);

    /// All four components exactly equal, with no tolerance.
    bool operator==(const Quaternion& other) const {
        return x == other.x && y == other.y && z == other.z && w == other.w;
    }

    /// Any component differs. A NaN on either side counts as a difference.
    bool operator!=(const Quaternion& other) const { return !(*this == other); }

    /// Overwrites the vector part; `w` stays.
    void set(double x, double y, double z);

    /// Overwrites all four components.
    void set(double x, double y, double z, double w);

    /// Becomes the rotation by `angle` about `axis`, which may have any length.
    void set(const Vec3& axis, double angle);

    /// Becomes the rotation of the upper left 3 x 3 block, which must be free of scale. Not normalised. A
    /// positive trace gives `w` first; otherwise the largest element of the diagonal gives the component of
    /// its axis first, which keeps the divisor away from 0 (after Shepperd).
    void setWithMat4(const Mat4& matrix);

    /// Becomes the product of the three rotations in the angles' order, to single-precision accuracy. The
    /// order `None` gives (0, 0, 0, 0); a value that is no order leaves the quaternion unchanged.
    void setWithEuler(const Euler& euler);

    /// Becomes the shortest rotation between two unit vectors; opposite ones turn about a perpendicular.
    void setWithDirection(const Vec3& from, const Vec3& to);

    /// Reads x, y, z, w from array[offset] and the three elements after it. Not bounds-checked.
    void setWithArray(double* array, int offset);

    /// Writes x, y, z, w to array[offset] and the three elements after it. Not bounds-checked.
    void toArray(double* array, int offset) const;

    /// Scales to length 1; a quaternion of length exactly 0 becomes the identity.
    void normalize();

    /// Becomes the inverse rotation, at unit length.
    void setInverse();

    /// Negates the vector part in place and keeps the length.
    void conjugate();

    /// The sum of the four products.
    double dot(const Quaternion& other) { return x * other.x + y * other.y + z * other.z + w * other.w; }

    /// The squared length.
    double lengthSq() { return dot(*this); }

    /// The length.
    double length() { return std::sqrt(lengthSq()); }

    /// The angle of the rotation in degrees, 0 to 360. NaN for a `w` outside -1 to 1.
    double getRotationAngle();

    /// The unit axis of the rotation; (0, 0, 1) where 1 - w * w is below kEpsilon.
    Vec3 getRotationAxis();

    /// this = this x other.
    void multiply(const Quaternion& other);

    /// this = other x this.
    void premultiply(const Quaternion& other);

    /// this = a x b. This object may be one of the two.
    void multiplyQuaternions(const Quaternion& a, const Quaternion& b);

    /// `v` turned by `q`, which must have unit length.
    [[nodiscard]] static Vec3 quaternionMulVec3(const Quaternion& q, const Vec3& v);

    /// Moves this towards `target` along the shorter arc: `t` is 0 here and 1 there, and beyond them the arc
    /// goes on. The result isn't normalised. Shoemake's spherical linear interpolation.
    /// Where both are one rotation (the dot product's magnitude is 1 or more) this stays as it is; where the
    /// sine of the arc is below 0.001 it becomes the average of both, whatever `t`.
    void slerp(const Quaternion& target, double t);

    /// The interpolation of `slerp` between two quaternions: spherical, in spite of the name.
    [[nodiscard]] static Quaternion lerp(const Quaternion& a, const Quaternion& b, double t);
};

} // namespace Tessaloom::BilateralBlur
