#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Capture.h"

namespace tervain::test {

/// How the scripted platform's capture service behaves. Its threads read a copy of this, so a test
/// may set the next script while they are still at work.
struct ScriptedCapture {
  struct Display {
    Platform::Size contentSize;
    float scale;
  };

  std::vector<Display> displays;
  std::string listError;     ///< fails the listing when not empty
  std::string captureError;  ///< fails the capture when not empty
  bool listTimesOut = false;
  bool captureTimesOut = false;
  std::optional<std::string> jpeg = "jpeg";
  std::size_t missingRows = 0;         ///< by how many rows the image is smaller than asked for
  std::size_t otherColours = 4096;     ///< how many samples of a picture are not of its background
  std::function<void()> beforeAnswer;  ///< called by every capture; may block, may throw
};

void script(ScriptedCapture capture);

/// What the last capture was asked for.
struct AskedCapture {
  std::size_t display;
  std::size_t width;
  std::size_t height;
  double quality;
  bool operator==(const AskedCapture&) const = default;
};
AskedCapture lastCapture();

}  // namespace tervain::test
