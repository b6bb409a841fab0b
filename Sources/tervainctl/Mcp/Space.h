#pragma once

#include <mutex>

#include "VMAgentClient/Screenshot.h"

namespace tervain::mcp {

/// The one space of coordinates: pixels of the last picture of the main display, or its points
/// while there is none. Threads may share it.
class Space {
 public:
  /// From now on coordinates are this picture's.
  void use(const Screenshot& picture);

  /// The point of the screen that coordinates tell.
  [[nodiscard]] ScreenPoint toScreen(double x, double y) const;

  /// A rectangle in coordinates, on the screen, and the other way round.
  [[nodiscard]] Frame toScreen(const Frame& frame) const;
  [[nodiscard]] Frame fromScreen(const Frame& frame) const;

  /// Does so with every element's frame.
  void fromScreen(Element& element) const;

 private:
  struct Mapping {
    double pixelsPerPoint = 1;
    ScreenPoint origin;
  };
  [[nodiscard]] Mapping mapping() const;

  mutable std::mutex mutex_;
  Mapping mapping_;
};

}  // namespace tervain::mcp
