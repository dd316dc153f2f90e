#pragma once

#include "Plugins/Shared/Math/Vec3.h"

#include <limits>

namespace Tessaloom::BilateralBlur {

/// An axis-aligned box in space, held as two corners. Nothing checks that they are in order; the operations
/// follow their formulas on an inverted box.
///
/// The empty value has the largest finite double in each component of `min` and (note) the smallest positive
/// normal one in each component of `max`: growing it by negative coordinates leaves that tiny `max`.
class Box3 {
public:
    /// The empty value.
    Box3() = default;
    Box3(Vec3 min, Vec3 max) : min(min), max(max) {}

    /// Whether each component of both corners differs by at most kEpsilon.
    bool operator==(const Box3& other) const { return min == other.min && max == other.max; }

    void set(Vec3 newMin, Vec3 newMax) { *this = Box3(newMin, newMax); }
    /// Grows the empty value by `count` / 3 points that lie as x, y, z triples. `count` is the number of
    /// floats, a multiple of 3; below 1 it leaves the empty value. All coordinates negative on an axis: see
    /// above.
    void setFromArray(float* values, int count);
    /// The smallest box around `count` points, right for negative coordinates too. Null or a count of 0 gives
    /// the empty value; a negative count takes the first point.
    void setFromPoints(Vec3* points, int count);
    void setFromCenterAndSize(Vec3 center, Vec3 size) { set(center - size * 0.5, center + size * 0.5); }
    /// Sets the empty value.
    void makeEmpty() { *this = Box3(); }

    /// Whether `min` lies beyond `max` on any axis, or both are exactly the origin. A box collapsed at any
    /// other point is not empty.
    bool isEmpty() const;
    /// The middle, without a test for an empty box.
    Vec3 getCenter() const { return (min + max) * 0.5; }
    /// The extent, without a test for an empty box.
    Vec3 getSize() const { return max - min; }

    /// Grows the box to cover a point.
    void expandByPoint(Vec3 point);
    /// Moves each corner outward by the vector.
    void expandByVector(Vec3 vector);
    /// Moves each corner outward by the amount on all three axes.
    void expandByScalar(float amount);
    void translate(Vec3 vector);
    /// Grows the box to cover another, an empty one taking part like any other.
    void unionBox(Box3 other);
    /// Cuts this box down to what it has in common with the other: no test, despite the name. It becomes the
    /// empty value where nothing is left.
    void intersects(Box3 other);

    /// Whether both have a point in common; touching is enough. Neither box changes.
    [[nodiscard]] bool intersectsBox(const Box3& other) const;
    /// Whether the point lies inside or on the surface. A NaN coordinate excludes nothing.
    bool containsPoint(const Vec3& point) const;
    /// Whether the other lies inside, touching included: a box contains itself.
    bool containsBox(const Box3& other) const;
    /// Where the point lies on each axis, 0 at `min` and 1 at `max`; a flat axis gives an infinity or NaN.
    Vec3 getParameter(const Vec3& point) const { return (point - min) / (max - min); }
    /// The point of the box nearest to `point`.
    [[nodiscard]] Vec3 clampPoint(Vec3 point) const;
    /// The distance from the point to the nearest one of the box; 0 inside.
    double distanceToPoint(Vec3 point);

    Vec3 min = Vec3(std::numeric_limits<double>::max());
    Vec3 max = Vec3(std::numeric_limits<double>::min());
};

} // namespace Tessaloom::BilateralBlur
