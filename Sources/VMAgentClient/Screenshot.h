#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "VMAgentClient/ElementTree.h"
#include "VMAgentCore/Json.h"

namespace tervain {

/// A picture of a display, and where its pixels are on it.
struct Screenshot {
  std::string jpeg;
  int width = 0;  // in pixels
  int height = 0;
  double pixelsPerPoint = 1;  // in both directions, but for rounding
  ScreenPoint origin;         // its top left, in points from that of the display
};

/// How a picture is wanted. A picture is never enlarged.
struct PictureWish {
  std::optional<Frame> region{};  // only this part of the display, in points from its top left
  bool points = false;            // at most a pixel a point
  std::optional<int> longest{};   // at most so many pixels, 1 or more, in each direction
  std::optional<int> quality{};   // of the JPEG, 1 to 100
  bool operator==(const PictureWish&) const = default;
};

/// A wish that can't be fulfilled. The text says why.
class BadWish : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// The picture in a successful reply to "screenshot", as it is wanted. It is the agent's own JPEG
/// where that will do, and where nothing is wished for its own measures, whatever they are. Throws
/// ProtocolError when there is no picture, and BadWish.
Screenshot screenshotOf(const Json& reply, const PictureWish& wish = {});

/// The place on the display, in points from its top left, that a picture's pixel shows.
ScreenPoint placeOf(const Screenshot& screenshot, double x, double y);

}  // namespace tervain
