#include "ScriptedPlatform/ScriptedCapture.h"

#include <algorithm>
#include <mutex>

#include "VMAgentCore/NeverDestroyed.h"

namespace tervain {
namespace {

std::mutex mutex;
// A capture that hung may still be under way when the process ends.
NeverDestroyed<std::shared_ptr<const test::ScriptedCapture>> current{
    std::make_shared<const test::ScriptedCapture>()};
test::AskedCapture asked;

std::shared_ptr<const test::ScriptedCapture> scripted() {
  const std::lock_guard lock(mutex);
  return *current;
}

}  // namespace

void test::script(ScriptedCapture capture) {
  const std::lock_guard lock(mutex);
  *current = std::make_shared<ScriptedCapture>(std::move(capture));
}

test::AskedCapture test::lastCapture() {
  const std::lock_guard lock(mutex);
  return asked;
}

namespace Platform {

struct ShareableDisplay::Handle {
  std::size_t index;
};
struct Image::Handle {
  test::AskedCapture asked;
};

std::variant<std::vector<ShareableDisplay>, CaptureError, TimedOut> shareableDisplays(Deadline) {
  const auto script = scripted();
  if (script->listTimesOut) {
    return TimedOut{};
  }
  if (!script->listError.empty()) {
    return CaptureError{script->listError};
  }
  std::vector<ShareableDisplay> displays;
  for (const auto& display : script->displays) {
    const ShareableDisplay::Handle handle{displays.size()};
    displays.push_back({std::make_shared<const ShareableDisplay::Handle>(handle),
                        display.contentSize, display.scale});
  }
  return displays;
}

std::variant<Image, CaptureError, TimedOut> captureImage(const ShareableDisplay& display,
                                                         std::size_t width, std::size_t height,
                                                         Deadline) {
  const auto script = scripted();
  if (script->beforeAnswer) {
    script->beforeAnswer();
  }
  if (script->captureTimesOut) {
    return TimedOut{};
  }
  if (!script->captureError.empty()) {
    return CaptureError{script->captureError};
  }
  const Image::Handle handle{{display.handle->index, width, height, 0}};
  return Image{std::make_shared<const Image::Handle>(handle), width, height - script->missingRows};
}

std::optional<std::string> encodeJPEG(const Image& image, double quality) {
  const std::lock_guard lock(mutex);
  asked = image.handle->asked;
  asked.quality = quality;
  return (*current)->jpeg;
}

std::vector<std::uint32_t> sampleColours(const Image&, std::size_t columns, std::size_t rows) {
  std::vector<std::uint32_t> colours(columns * rows, 0x112233);
  std::fill_n(colours.begin(), std::min(scripted()->otherColours, colours.size()), 0xFFFFFF);
  return colours;
}

}  // namespace Platform
}  // namespace tervain
