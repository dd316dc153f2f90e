#pragma once

#include "Plugins/Shared/Math/Vec2.h"
#include "Plugins/Shared/Math/Vec4.h"

namespace Tessaloom::BilateralBlur {

/// An axis-aligned rectangle in a frame with y downward: x is the left edge, y the top, z the width, w the
/// height. Width and height may be zero or negative; nothing normalises them, and the operations follow their
/// formulas on such values.
///
/// Setting an edge on the left or top moves the rectangle, on the right or bottom resizes it.
/// Single-precision parameters are widened on entry.
class Rect : public Vec4 {
public:
    /// (0, 0, 0, 0).
    Rect() = default;
    constexpr Rect(Vec2 point, Vec2 size) : Rect(point.x, point.y, size.x, size.y) {}
    constexpr Rect(double left, double top, double width, double height) : Vec4(left, top, width, height) {}

    /// Whether each field differs by at most kEpsilon.
    bool operator==(const Rect& other) const;
    bool operator!=(const Rect& other) const { return !(*this == other); }

    /// (left, top), under two names.
    Vec2 getPoint() const { return {x, y}; }
    Vec2 getTopLeft() const { return getPoint(); }
    /// Moves the rectangle; its size stays.
    void setPoint(Vec2 point);
    /// (width, height).
    Vec2 getSize() const { return {z, w}; }
    /// Sets width and height; left and top stay.
    void setSize(Vec2 size);
    constexpr double getLeft() const { return x; }
    constexpr double getTop() const { return y; }
    /// Moves the rectangle; its size stays.
    void setLeft(double left) { x = left; }
    void setTop(double top) { y = top; }
    constexpr double getRight() const { return x + z; }
    constexpr double getBottom() const { return y + w; }
    /// Sets the width; left stays.
    void setRight(double right) { z = right - x; }
    /// Sets the height; top stays.
    void setBottom(float bottom) { w = bottom - y; }
    constexpr double getCenterX() const { return z * 0.5 + x; }
    constexpr double getCenterY() const { return w * 0.5 + y; }
    /// Moves the rectangle; its size stays.
    void setCenterX(double value) { x = z * -0.5 + value; }
    void setCenterY(double value) { y = w * -0.5 + value; }
    Vec2 getCenter() const { return {getCenterX(), getCenterY()}; }
    /// Moves the rectangle; its size stays.
    void setCenter(Vec2 center) { setPoint(center - getSize() * 0.5); }
    Vec2 getTopRight() const { return {getRight(), y}; }
    Vec2 getBottomLeft() const { return {x, getBottom()}; }
    Vec2 getBottomRight() const { return {getRight(), getBottom()}; }

    /// Width times height; negative if exactly one of them is.
    constexpr double getArea() const { return z * w; }
    /// Whether width and height are both exactly zero.
    bool isEmpty() const { return z == 0.0 && w == 0.0; }
    /// Whether the point lies inside or on any of the four edges.
    bool containsPoint(Vec2 point) const;
    /// Whether the other lies inside, edges touching included: a rectangle contains itself.
    bool containsRect(Rect other) const;
    /// Whether both overlap; a shared edge or corner is not enough.
    bool intersects(Rect other) const;
    /// Whether both overlap or share an edge or a corner.
    bool touches(Rect other) const;
    /// The common rectangle. Its width or height is negative where there is none.
    [[nodiscard]] Rect intersect(Rect other);
    /// The smallest rectangle around both, empty ones taking part like any other.
    [[nodiscard]] Rect unite(Rect other);
    /// Grows this rectangle to cover the point.
    void include(Vec2 point) { *this = getInclude(point); }
    /// The copy of this rectangle that covers the point.
    [[nodiscard]] Rect getInclude(Vec2 point);
    /// A copy with every edge moved outward by the amount, inward where it is negative.
    [[nodiscard]] Rect expand(Vec2 amount);
    [[nodiscard]] Rect expand(float amount) { return expand(Vec2(amount, amount)); }
    /// A copy with every edge moved outward by (factor - 1) times the size on its axis. So the width becomes
    /// (2 sx - 1) times itself, not sx times: a factor of 2 makes it three times as wide about one centre.
    [[nodiscard]] Rect scale(float sx, float sy);
};

} // namespace Tessaloom::BilateralBlur
