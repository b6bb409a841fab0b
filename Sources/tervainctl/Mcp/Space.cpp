#include "tervainctl/Mcp/Space.h"

#include <cmath>

namespace tervain::mcp {
namespace {

/// A length of a rectangle, of which nothing may get lost.
struct Stretch {
  std::int64_t start;
  std::int64_t length;
};

/// Frames are what applications say, which can be anything.
std::int64_t bounded(double number) {
  constexpr double most = 1e15;
  return std::llround(std::fmin(std::fmax(number, -most), most));
}

Stretch stretched(double start, double length, double factor) {
  return {bounded(start * factor), bounded(length * factor)};
}

}  // namespace

void Space::use(const Screenshot& picture) {
  const std::lock_guard lock(mutex_);
  mapping_ = {picture.pixelsPerPoint, picture.origin};
}

Space::Mapping Space::mapping() const {
  const std::lock_guard lock(mutex_);
  return mapping_;
}

ScreenPoint Space::toScreen(double x, double y) const {
  const Mapping now = mapping();
  Screenshot picture;
  picture.pixelsPerPoint = now.pixelsPerPoint;
  picture.origin = now.origin;
  return placeOf(picture, x, y);
}

Frame Space::toScreen(const Frame& frame) const {
  const Mapping now = mapping();
  const auto [x, w] = stretched(double(frame.x), double(frame.w), 1 / now.pixelsPerPoint);
  const auto [y, h] = stretched(double(frame.y), double(frame.h), 1 / now.pixelsPerPoint);
  return {now.origin.x + x, now.origin.y + y, w, h};
}

Frame Space::fromScreen(const Frame& frame) const {
  const Mapping now = mapping();
  const auto from = [](std::int64_t point, std::int64_t origin) {
    return double(point) - double(origin);
  };
  const auto [x, w] = stretched(from(frame.x, now.origin.x), double(frame.w), now.pixelsPerPoint);
  const auto [y, h] = stretched(from(frame.y, now.origin.y), double(frame.h), now.pixelsPerPoint);
  return {x, y, w, h};
}

void Space::fromScreen(Element& element) const {
  if (element.frame) {
    element.frame = fromScreen(*element.frame);
  }
  for (Element& child : element.children) {
    fromScreen(child);
  }
}

}  // namespace tervain::mcp
