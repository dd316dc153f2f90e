#include "Plugins/Shared/Math/Rect.h"

#include <algorithm>

namespace Tessaloom::BilateralBlur {

namespace {

Rect betweenEdges(double left, double top, double right, double bottom) {
    return {left, top, right - left, bottom - top};
}

} // namespace

bool Rect::operator==(const Rect& other) const {
    return getPoint() == other.getPoint() && getSize() == other.getSize();
}

void Rect::setPoint(Vec2 point) {
    x = point.x;
    y = point.y;
}

void Rect::setSize(Vec2 size) {
    z = size.x;
    w = size.y;
}

bool Rect::containsPoint(Vec2 point) const {
    return point.x >= x && point.y >= y && getRight() >= point.x && getBottom() >= point.y;
}

bool Rect::containsRect(Rect other) const {
    return other.x >= x && other.y >= y && getRight() >= other.getRight() && getBottom() >= other.getBottom();
}

bool Rect::intersects(Rect other) const {
    return other.getRight() > x && other.getBottom() > y && getRight() > other.x && getBottom() > other.y;
}

bool Rect::touches(Rect other) const {
    return other.getRight() >= x && other.getBottom() >= y && getRight() >= other.x && getBottom() >= other.y;
}

Rect Rect::intersect(Rect other) {
    return betweenEdges(std::max(x, other.x), std::max(y, other.y), std::min(getRight(), other.getRight()),
                        std::min(getBottom(), other.getBottom()));
}

Rect Rect::unite(Rect other) {
    return betweenEdges(std::min(x, other.x), std::min(y, other.y), std::max(getRight(), other.getRight()),
                        std::max(getBottom(), other.getBottom()));
}

Rect Rect::getInclude(Vec2 point) {
    return betweenEdges(std::min(x, point.x), std::min(y, point.y), std::max(getRight(), point.x),
                        std::max(getBottom(), point.y));
}

Rect Rect::expand(Vec2 amount) {
    return {x - amount.x, y - amount.y, z + 2.0 * amount.x, w + 2.0 * amount.y};
}

Rect Rect::scale(float sx, float sy) {
    return expand(Vec2(sx * z - z, sy * w - w));
}

} // namespace Tessaloom::BilateralBlur
