#include "Plugins/Shared/Math/Box3.h"

namespace Tessaloom::BilateralBlur {

void Box3::setFromArray(float* values, int count) {
    makeEmpty();
    for (int i = 0; i < count; i += 3)
        expandByPoint(Vec3(values[i], values[i + 1], values[i + 2]));
}

void Box3::setFromPoints(Vec3* points, int count) {
    // Built aside, because the points may be this box's own corners.
    Box3 box;
    if (points && count != 0) {
        box.set(points[0], points[0]);
        for (int i = 1; i < count; ++i)
            box.expandByPoint(points[i]);
    }
    *this = box;
}

bool Box3::isEmpty() const {
    const bool inverted = min.x > max.x || min.y > max.y || min.z > max.z;
    return inverted || (min.isZero() && max.isZero());
}

void Box3::expandByPoint(Vec3 point) {
    min.getMin(point);
    max.getMax(point);
}

void Box3::expandByVector(Vec3 vector) {
    min -= vector;
    max += vector;
}

void Box3::expandByScalar(float amount) {
    min += -amount;
    max += amount;
}

void Box3::translate(Vec3 vector) {
    min += vector;
    max += vector;
}

void Box3::unionBox(Box3 other) {
    min.getMin(other.min);
    max.getMax(other.max);
}

void Box3::intersects(Box3 other) {
    min.getMax(other.min);
    max.getMin(other.max);
    if (isEmpty())
        makeEmpty();
}

bool Box3::intersectsBox(const Box3& other) const {
    const bool apart = min.x > other.max.x || other.min.x > max.x || min.y > other.max.y ||
                       other.min.y > max.y || min.z > other.max.z || other.min.z > max.z;
    return !apart;
}

bool Box3::containsPoint(const Vec3& point) const {
    return intersectsBox(Box3(point, point));
}

bool Box3::containsBox(const Box3& other) const {
    return other.min.x >= min.x && max.x >= other.max.x && other.min.y >= min.y && max.y >= other.max.y &&
           other.min.z >= min.z && max.z >= other.max.z;
}

Vec3 Box3::clampPoint(Vec3 point) const {
    point.clamp(min, max);
    return point;
}

double Box3::distanceToPoint(Vec3 point) {
    return clampPoint(point).distance(point);
}

} // namespace Tessaloom::BilateralBlur
