#pragma once

namespace tervain::Platform {

/// A place in global display coordinates: the origin is the top left corner of the main display
/// and y grows downwards. Points on macOS, pixels elsewhere.
struct Point {
  double x;
  double y;
};

/// A size in the units of Point.
struct Size {
  double width;
  double height;
};

}  // namespace tervain::Platform
