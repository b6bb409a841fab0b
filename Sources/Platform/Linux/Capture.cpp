#include "Platform/Capture.h"

#include <turbojpeg.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <mutex>
#include <system_error>
#include <thread>

#include "Platform/Linux/Monitors.h"
#include "Platform/Linux/ScreenGrabber.h"

namespace tervain::Platform {
namespace {

constexpr const char* noServer = "no X server answers (is DISPLAY set?)";

/// Half the colours' resolution in both directions: an eye hardly sees it, and it takes half the
/// time of full resolution.
constexpr TJSAMP subsampling = TJSAMP_420;

constexpr TJPF pixelFormat = std::endian::native == std::endian::little ? TJPF_BGRX : TJPF_XRGB;

/// A JPEG encoder that keeps its tables and its memory for the next picture.
class Encoder {
 public:
  std::optional<std::string> encode(const std::uint32_t* pixels, int width, int height,
                                    double quality) {
    if (!encoder_ || !reserve(tjBufSize(width, height, subsampling))) {
      return std::nullopt;
    }
    const int percent = static_cast<int>(std::lround(std::clamp(quality, 0.01, 1.0) * 100));
    unsigned char* const out = buffer_.get();
    unsigned char* written = out;
    unsigned long size = capacity_;
    if (tjCompress2(encoder_.get(), reinterpret_cast<const unsigned char*>(pixels), width, 0,
                    height, pixelFormat, &written, &size, subsampling, percent,
                    TJFLAG_NOREALLOC) != 0) {
      return std::nullopt;
    }
    return std::string(reinterpret_cast<const char*>(out), size);
  }

 private:
  struct Destroy {
    void operator()(void* encoder) const { tjDestroy(encoder); }
  };
  struct Free {
    void operator()(unsigned char* buffer) const { tjFree(buffer); }
  };

  /// Room for the worst case. What a picture does not fill is never touched, so it takes no memory.
  bool reserve(unsigned long size) {
    if (capacity_ < size) {
      buffer_.reset(tjAlloc(static_cast<int>(size)));
      capacity_ = buffer_ ? size : 0;
    }
    return capacity_ >= size;
  }

  std::unique_ptr<void, Destroy> encoder_{tjInitCompress()};
  std::unique_ptr<unsigned char, Free> buffer_;
  unsigned long capacity_ = 0;
};

/// What a picture is made with.
struct Camera {
  std::unique_ptr<X11::ScreenGrabber> grabber;
  Encoder encoder;
};

/// Keeps one camera for the next picture, as long as pictures are asked for.
class Shelf {
 public:
  static Shelf& shared() {
    // Never destroyed: a picture may still be under way when the process ends.
    static Shelf& shelf = *new Shelf;
    return shelf;
  }

  /// A camera whose server is there; null when there is none.
  std::unique_ptr<Camera> take(Deadline deadline) {
    auto camera = takeKept();
    if (camera && camera->grabber->renew(deadline)) {
      return camera;
    }
    camera = std::make_unique<Camera>();
    camera->grabber = X11::ScreenGrabber::connect(deadline);
    return camera->grabber ? std::move(camera) : nullptr;
  }

  void giveBack(std::unique_ptr<Camera> camera) {
    if (!camera->grabber->alive()) {
      return;
    }
    const std::lock_guard lock(mutex_);
    lastUse_ = Deadline::clock::now();
    if (!kept_ && (watched_ || watch())) {
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

  /// Starts the thread that clears the shelf. To be called under the lock.
  bool watch() {
    try {
      std::thread([this] { clearWhenUnused(); }).detach();
    } catch (const std::system_error&) {
      return false;
    }
    watched_ = true;
    return true;
  }

  void clearWhenUnused() {
    std::unique_lock lock(mutex_);
    while (Deadline::clock::now() < lastUse_ + keepTime) {
      const Deadline end = lastUse_ + keepTime;
      lock.unlock();
      std::this_thread::sleep_until(end);
      lock.lock();
    }
    watched_ = false;
    const auto unused = std::move(kept_);
    lock.unlock();
  }

  std::mutex mutex_;
  std::unique_ptr<Camera> kept_;
  bool watched_ = false;
  Deadline lastUse_;
};

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
std::variant<std::vector<ShareableDisplay>, CaptureError> shareableDisplays(Deadline deadline) {
  auto x11 = X11::Session::open(deadline);
  if (!x11) {
    return CaptureError{noServer};
  }
  const auto screen = X11::lookAtScreen(*x11);
  if (!screen) {
    return CaptureError{"the X server does not tell its monitors"};
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

std::variant<Image, CaptureError> captureImage(const ShareableDisplay& display,
                                               std::size_t /*width*/, std::size_t /*height*/,
                                               Deadline deadline) {
  auto camera = Shelf::shared().take(deadline);
  if (!camera) {
    return CaptureError{noServer};
  }
  const X11::Area& area = display.handle->area;
  if (auto failure = camera->grabber->grab(area)) {
    Shelf::shared().giveBack(std::move(camera));
    return CaptureError{std::move(*failure)};
  }
  return Image{std::make_shared<Image::Handle>(std::move(camera)), area.width, area.height};
}

std::optional<std::string> encodeJPEG(const Image& image, double quality) {
  const std::lock_guard lock(image.handle->encoding);
  Camera& camera = *image.handle->camera;
  return camera.encoder.encode(camera.grabber->pixels(), static_cast<int>(image.width),
                               static_cast<int>(image.height), quality);
}

}  // namespace tervain::Platform
