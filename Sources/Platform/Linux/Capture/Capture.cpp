#include "Platform/Capture.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "Platform/Linux/Capture/JpegEncoder.h"
#include "Platform/Linux/Capture/ScreenGrabber.h"
#include "Platform/Linux/X11/Monitors.h"
#include "VMAgentCore/IdleTimer.h"
#include "VMAgentCore/NeverDestroyed.h"

namespace tervain::Platform {

using namespace Linux;

namespace {

constexpr const char* noServer = "no X server answers (is DISPLAY set?)";

/// What a picture is made with.
struct Camera {
  explicit Camera(X11::Session x11) : grabber(std::move(x11)) {}

  X11::ScreenGrabber grabber;
  JpegEncoder encoder;
};

/// Keeps one camera for the next picture, as long as pictures are asked for.
class Shelf {
 public:
  static Shelf& shared() {
    static NeverDestroyed<Shelf> shelf;
    return *shelf;
  }

  /// A camera for pictures that are taken by the deadline.
  std::variant<std::unique_ptr<Camera>, X11::OpenFailure> take(Deadline deadline) {
    if (auto camera = takeKept(); camera && camera->grabber.renew(deadline)) {
      return camera;
    }
    auto opened = X11::Session::tryOpen(deadline);
    if (const auto* failure = std::get_if<X11::OpenFailure>(&opened)) {
      return *failure;
    }
    return std::make_unique<Camera>(std::get<X11::Session>(std::move(opened)));
  }

  void giveBack(std::unique_ptr<Camera> camera) {
    if (!camera->grabber.alive()) {
      return;
    }
    const std::lock_guard lock(mutex_);
    if (idle_.restart() && !kept_) {
      kept_ = std::move(camera);
    }
  }

 private:
  /// A picture takes as much memory as the whole agent beside it; who looks at the screen again and
  /// again does so within seconds.
  static constexpr std::chrono::seconds keepTime{10};

  std::unique_ptr<Camera> takeKept() {
    const std::lock_guard lock(mutex_);
    return std::move(kept_);
  }

  /// Others go on meanwhile: the server may be slow to let go of the memory.
  bool clear(std::unique_lock<std::mutex>& lock) {
    auto unused = std::move(kept_);
    lock.unlock();
    unused.reset();
    lock.lock();
    return true;
  }

  std::mutex mutex_;
  std::unique_ptr<Camera> kept_;
  IdleTimer idle_{mutex_, keepTime, [this](auto& lock) { return clear(lock); }};
};

using Listed = std::variant<std::vector<ShareableDisplay>, CaptureError, TimedOut>;
using Captured = std::variant<Image, CaptureError, TimedOut>;

template <class Result>
Result failed(bool late, std::string why) {
  if (late) {
    return TimedOut{};
  }
  return CaptureError{std::move(why)};
}

/// The part of an area that lies on the screen.
X11::Area clip(const X11::Area& area, const X11::Area& screen) {
  const int left = std::clamp<int>(area.x, 0, screen.width);
  const int top = std::clamp<int>(area.y, 0, screen.height);
  const int right = std::clamp<int>(area.x + area.width, left, screen.width);
  const int bottom = std::clamp<int>(area.y + area.height, top, screen.height);
  return {static_cast<std::int16_t>(left), static_cast<std::int16_t>(top),
          static_cast<std::uint16_t>(right - left), static_cast<std::uint16_t>(bottom - top)};
}

}  // namespace

struct ShareableDisplay::Handle {
  explicit Handle(const X11::Area& whole) : area(whole) {}

  X11::Area area;
};

struct Image::Handle {
  explicit Handle(std::unique_ptr<Camera> used) : camera(std::move(used)) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { Shelf::shared().giveBack(std::move(camera)); }

  std::unique_ptr<Camera> camera;
  mutable std::mutex encoding;
};

/// Every coordinate of the agent on this system is in X pixels, so these are its points too, and
/// the scale is 1 however large the desktop draws its text.
Listed shareableDisplays(Deadline deadline) {
  auto opened = X11::Session::tryOpen(deadline);
  if (const auto* failure = std::get_if<X11::OpenFailure>(&opened)) {
    return failed<Listed>(*failure == X11::OpenFailure::timedOut, noServer);
  }
  auto& x11 = std::get<X11::Session>(opened);
  const auto screen = X11::lookAtScreen(x11);
  if (!screen) {
    return failed<Listed>(x11.late(), "the X server does not tell its monitors");
  }
  std::vector<ShareableDisplay> displays;
  for (const X11::Monitor& monitor : screen->monitors) {
    const X11::Area area = clip(monitor.area, screen->area);
    if (area.width > 0 && area.height > 0) {
      displays.push_back({std::make_shared<ShareableDisplay::Handle>(area),
                          {static_cast<double>(area.width), static_cast<double>(area.height)},
                          1.0F});
    }
  }
  return displays;
}

Captured captureImage(const ShareableDisplay& display, std::size_t /*width*/,
                      std::size_t /*height*/, Deadline deadline) {
  auto taken = Shelf::shared().take(deadline);
  if (const auto* failure = std::get_if<X11::OpenFailure>(&taken)) {
    return failed<Captured>(*failure == X11::OpenFailure::timedOut, noServer);
  }
  auto& camera = std::get<std::unique_ptr<Camera>>(taken);
  const X11::Area& area = display.handle->area;
  if (auto failure = camera->grabber.grab(area)) {
    const bool late = camera->grabber.late();
    Shelf::shared().giveBack(std::move(camera));
    return failed<Captured>(late, std::move(*failure));
  }
  return Image{std::make_shared<Image::Handle>(std::move(camera)), area.width, area.height};
}

std::optional<std::string> encodeJPEG(const Image& image, double quality) {
  const std::lock_guard lock(image.handle->encoding);
  Camera& camera = *image.handle->camera;
  return camera.encoder.encode(camera.grabber.pixels(), static_cast<int>(image.width),
                               static_cast<int>(image.height), quality);
}

std::vector<std::uint32_t> sampleColours(const Image& image, std::size_t columns,
                                         std::size_t rows) {
  const std::lock_guard lock(image.handle->encoding);
  const std::uint32_t* const pixels = image.handle->camera->grabber.pixels();
  std::vector<std::uint32_t> colours;
  for (std::size_t row = 0; row < rows; ++row) {
    for (std::size_t column = 0; column < columns; ++column) {
      const std::size_t y = row * image.height / rows;
      colours.push_back(pixels[y * image.width + column * image.width / columns] & 0xFFFFFFU);
    }
  }
  return colours;
}

}  // namespace tervain::Platform
