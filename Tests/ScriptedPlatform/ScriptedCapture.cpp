#include "ScriptedPlatform/ScriptedCapture.h"

#include <mutex>

namespace tervain {
namespace {

std::mutex mutex;
// Never destroyed: a capture that hung may still be under way when the process ends.
auto& current = *new auto(std::make_shared<const test::ScriptedCapture>());
test::AskedCapture asked;

std::shared_ptr<const test::ScriptedCapture> scripted() {
  const std::lock_guard lock(mutex);
  return current;
}

}  // namespace

void test::script(ScriptedCapture capture) {
  const std::lock_guard lock(mutex);
  current = std::make_shared<ScriptedCapture>(std::move(capture));
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

std::variant<std::vector<ShareableDisplay>, CaptureError> shareableDisplays(Deadline) {
  const auto script = scripted();
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

std::variant<Image, CaptureError> captureImage(const ShareableDisplay& display, std::size_t width,
                                               std::size_t height, Deadline) {
  const auto script = scripted();
  if (script->beforeAnswer) {
    script->beforeAnswer();
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
  return current->jpeg;
}

}  // namespace Platform
}  // namespace tervain
