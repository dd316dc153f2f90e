#pragma once

#include <cstdint>

namespace Tessaloom::BilateralBlur {

class Mat4;
class Quaternion;

/// A rotation as three angles in radians and the order of their axes. Nothing here throws or allocates.
class Euler {
public:
    /// The factors of the rotation from left to right: `XYZ` is Rx(x) Ry(y) Rz(z), so z acts first on a
    /// vector.
    enum RotationOrder : std::uint32_t {
        None = 0, ///< no order; as an argument it keeps the stored one
        XYZ = 1,
        YZX = 2,
        ZXY = 3,
        XZY = 4,
        YXZ = 5,
        ZYX = 6
    };

    double x;            ///< angle about the x axis
    double y;            ///< angle about the y axis
    double z;            ///< angle about the z axis
    RotationOrder order; ///< order of the axes

    /// No rotation, in the order `XYZ`.
    Euler();

    /// The given angles and order, which is stored even if it is `None`.
    Euler(double x, double y, double z, RotationOrder order);

    /// Overwrites the angles, and the order unless it is `None`.
    void set(double x, double y, double z, RotationOrder order = None);

    /// Takes the angles from the upper left 3 x 3 block, which must be free of scale, in the given order or,
    /// for `None`, the stored one. The middle angle comes back within plus or minus pi/2. Within 0.0014 of
    /// these poles the outer axes count as one: one outer angle becomes 0, the other carries both, and the
    /// rotation comes back to twice that accuracy. A value that is no order is stored and leaves the angles
    /// unchanged.
    void setWithMat4(const Mat4& matrix, RotationOrder order = None);

    /// Takes the angles from a unit quaternion, as `setWithMat4` does from its matrix.
    void setWithQuaternion(const Quaternion& quaternion, RotationOrder order = None);

    /// Each angle within `kEpsilon` of the other's, and the same order.
    bool operator==(const Euler& other) const;
};

} // namespace Tessaloom::BilateralBlur
