#pragma once

// CoreGraphics geometry: points, sizes and rectangles of 64-bit doubles, in points.

#include <algorithm>

namespace tavrel {

struct CGPoint {
  double x = 0.0;
  double y = 0.0;
  bool operator==(const CGPoint&) const = default;
};

struct CGSize {
  double width = 0.0;
  double height = 0.0;
  bool operator==(const CGSize&) const = default;
};

struct CGRect {
  CGPoint origin;
  CGSize size;
  bool operator==(const CGRect&) const = default;

  double minX() const { return std::min(origin.x, origin.x + size.width); }
  double minY() const { return std::min(origin.y, origin.y + size.height); }
  double maxX() const { return std::max(origin.x, origin.x + size.width); }
  double maxY() const { return std::max(origin.y, origin.y + size.height); }
  double midX() const { return origin.x + size.width / 2.0; }
  double midY() const { return origin.y + size.height / 2.0; }
  bool isEmpty() const { return size.width <= 0.0 || size.height <= 0.0; }
  // Half-open, as CGRectContainsPoint: the left and top edges are inside, the others not.
  bool containsPoint(CGPoint p) const { return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY(); }
};

inline constexpr CGRect CGRectMake(double x, double y, double width, double height) {
  return CGRect{CGPoint{x, y}, CGSize{width, height}};
}
inline constexpr CGPoint CGPointMake(double x, double y) { return CGPoint{x, y}; }
inline constexpr CGSize CGSizeMake(double width, double height) { return CGSize{width, height}; }
inline constexpr CGRect CGRectZero{};

// The smallest rectangle holding both; an empty one adds nothing.
inline CGRect CGRectUnion(CGRect a, CGRect b) {
  if (a.isEmpty()) return b;
  if (b.isEmpty()) return a;
  const double left = std::min(a.minX(), b.minX()), top = std::min(a.minY(), b.minY());
  return {{left, top}, {std::max(a.maxX(), b.maxX()) - left, std::max(a.maxY(), b.maxY()) - top}};
}
// What the two share; CGRectZero when nothing.
inline CGRect CGRectIntersection(CGRect a, CGRect b) {
  const double left = std::max(a.minX(), b.minX()), top = std::max(a.minY(), b.minY());
  const double right = std::min(a.maxX(), b.maxX()), bottom = std::min(a.maxY(), b.maxY());
  if (right <= left || bottom <= top) return CGRectZero;
  return {{left, top}, {right - left, bottom - top}};
}

}  // namespace tavrel
