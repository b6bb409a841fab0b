#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Capture.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "TervainVMAgent/Errands.h"
#include "VMAgentCore/NeverDestroyed.h"
#include "VMAgentCore/Rounding.h"

namespace tervain {
namespace {

/// Readable text at about a tenth of what the same picture takes without loss.
constexpr double jpegQuality = 0.7;

Errands& captures() {
  static NeverDestroyed<Errands> errands;
  return *errands;
}

constexpr const char* timedOut = "screenshot timed out";

Reply captureFailed(std::string_view description) {
  return Reply::failure(std::string("ScreenCaptureKit capture failed: ").append(description));
}

/// The reply to what the service answers instead of what it was asked for. Nothing when it answers
/// just that.
template <class Answer>
std::optional<Reply> failureOf(const Answer& answer) {
  if (const auto* error = std::get_if<Platform::CaptureError>(&answer)) {
    return captureFailed(error->description);
  }
  if (std::holds_alternative<Platform::TimedOut>(answer)) {
    return Reply::failure(timedOut);
  }
  return std::nullopt;
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
  if (auto failure = failureOf(captured)) {
    return *std::move(failure);
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
  if (auto failure = failureOf(shareable)) {
    return *std::move(failure);
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
  const Deadline deadline = after(settings_.screenshotLimit);
  auto errand = captures().begin(deadline);
  auto reply = errand ? std::move(*errand).run<Reply>(
                            [index, deadline] { return captureDisplay(index, deadline); }, deadline)
                      : std::nullopt;
  return reply ? std::move(*reply) : Reply::failure(timedOut);
} catch (const std::exception& error) {  // no thread, or no memory
  return captureFailed(error.what());
}

}  // namespace tervain
