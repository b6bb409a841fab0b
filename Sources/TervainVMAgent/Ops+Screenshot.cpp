#include <algorithm>
#include <exception>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Capture.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "TervainVMAgent/Errands.h"
#include "VMAgentCore/Rounding.h"

namespace tervain {
namespace {

/// Readable text at about a tenth of what the same picture takes without loss.
constexpr double jpegQuality = 0.7;

/// Never destroyed: a capture may still be under way when the process ends.
Errands& captures() {
  static Errands& errands = *new Errands;
  return errands;
}

constexpr std::string_view timedOut = "screenshot timed out";

Reply captureFailed(std::string_view description) {
  return Reply::failure(std::string("ScreenCaptureKit capture failed: ").append(description));
}

/// A service that gave up at the deadline says so at the very moment when the handler does.
Reply captureFailed(const Platform::CaptureError& error, Deadline deadline) {
  return Deadline::clock::now() < deadline ? captureFailed(error.description)
                                           : Reply::failure(timedOut);
}

/// A length in pixels, cut to a whole number.
std::size_t pixels(double points, float scale) {
  const double length = points * static_cast<double>(scale);
  return fitsInt64(length) ? static_cast<std::size_t>(std::max(length, 0.0)) : 0;
}

const Platform::ShareableDisplay& displayAt(const std::vector<Platform::ShareableDisplay>& displays,
                                            std::int64_t index) {
  const bool exists = index >= 0 && static_cast<std::uint64_t>(index) < displays.size();
  return displays[exists ? static_cast<std::size_t>(index) : 0];
}

Reply capture(const Platform::ShareableDisplay& display, Deadline deadline) {
  const float scale = display.pointPixelScale;
  const auto captured = Platform::captureImage(display, pixels(display.contentSize.width, scale),
                                               pixels(display.contentSize.height, scale), deadline);
  if (const auto* error = std::get_if<Platform::CaptureError>(&captured)) {
    return captureFailed(*error, deadline);
  }
  const auto& image = std::get<Platform::Image>(captured);
  auto jpeg = Platform::encodeJPEG(image, jpegQuality);
  if (!jpeg) {
    return Reply::failure("JPEG encoding failed");
  }
  Json reply{{"ok", true},
             {"format", "jpeg"},
             {"width", image.width},
             {"height", image.height},
             {"scale", static_cast<double>(scale)}};
  return {std::move(reply), "image", std::move(*jpeg)};
}

}  // namespace

Reply ConnectionHandler::captureDisplay(std::int64_t index, Deadline deadline) try {
  const auto shareable = Platform::shareableDisplays(deadline);
  if (const auto* error = std::get_if<Platform::CaptureError>(&shareable)) {
    return captureFailed(*error, deadline);
  }
  const auto& displays = std::get<std::vector<Platform::ShareableDisplay>>(shareable);
  if (displays.empty()) {
    return Reply::failure("no shareable displays");
  }
  return capture(displayAt(displays, index), deadline);
} catch (const std::exception& error) {
  return captureFailed(error.what());
}

Reply ConnectionHandler::opScreenshot(const Json& request) const try {
  const std::int64_t index = integerMember(request, "display").value_or(0);
  const Deadline deadline = Deadline::clock::now() + settings_.screenshotLimit;
  auto errand = captures().begin(deadline);
  auto reply = errand ? std::move(*errand).run<Reply>(
                            [index, deadline] { return captureDisplay(index, deadline); }, deadline)
                      : std::nullopt;
  return reply ? std::move(*reply) : Reply::failure(timedOut);
} catch (const std::exception& error) {  // no thread, or no memory
  return captureFailed(error.what());
}

}  // namespace tervain
