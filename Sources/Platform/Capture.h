#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Geometry.h"
#include "VMAgentCore/ResultBox.h"

/// Pictures of the screen. The calls give up at their deadline where the system lets them, but a
/// capture service that hangs may hold them for good: they belong on a thread that nobody depends
/// on.
namespace tervain::Platform {

/// Why the capture service failed, in the system's words.
struct CaptureError {
  std::string description;
};

/// The capture service has not answered by the deadline.
struct TimedOut {};

/// A display that can be captured. Copies share the system's object.
struct ShareableDisplay {
  struct Handle;  ///< what the port keeps; each port defines its own

  std::shared_ptr<const Handle> handle;
  Size contentSize;       ///< in points
  float pointPixelScale;  ///< pixels per point
};

/// The displays that are in use, in the system's order.
std::variant<std::vector<ShareableDisplay>, CaptureError, TimedOut> shareableDisplays(
    Deadline deadline);

/// A captured picture. Copies share the pixels.
struct Image {
  struct Handle;

  std::shared_ptr<const Handle> handle;
  std::size_t width;  ///< in pixels
  std::size_t height;
};

/// Captures a whole display with the pointer drawn in, in the size in pixels that is asked for or
/// as near to it as the system comes: the image tells.
std::variant<Image, CaptureError, TimedOut> captureImage(const ShareableDisplay& display,
                                                         std::size_t width, std::size_t height,
                                                         Deadline deadline);

/// The picture as JPEG, `quality` being 0 to 1. Nothing when it can't be encoded.
std::optional<std::string> encodeJPEG(const Image& image, double quality);

/// The colours of the picture at the crossings of a grid of so many lines, row by row, each as
/// 0xRRGGBB. Empty when they can't be had.
std::vector<std::uint32_t> sampleColours(const Image& image, std::size_t columns, std::size_t rows);

}  // namespace tervain::Platform
