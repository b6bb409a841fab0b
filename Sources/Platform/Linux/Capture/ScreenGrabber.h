#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Linux/X11/Monitors.h"
#include "Platform/Linux/X11/Session.h"

namespace tervain::Linux::X11 {

/// Memory that the X server writes pictures into, and this process reads them from.
class SharedSegment {
 public:
  /// Nothing where there is no memory or the server can't be handed a descriptor.
  static std::optional<SharedSegment> create(const Session& x11, std::size_t size);

  [[nodiscard]] xcb_shm_seg_t id() const { return id_; }
  [[nodiscard]] std::size_t size() const { return bytes_.get_deleter().size; }
  [[nodiscard]] std::uint32_t* pixels() const { return static_cast<std::uint32_t*>(bytes_.get()); }

 private:
  struct Unmap {
    std::size_t size = 0;
    void operator()(void* bytes) const;
  };
  using Mapping = std::unique_ptr<void, Unmap>;

  SharedSegment(xcb_shm_seg_t id, Mapping bytes) : id_(id), bytes_(std::move(bytes)) {}

  xcb_shm_seg_t id_;
  Mapping bytes_;
};

/// Takes pictures of the screen, the pointer drawn in. It keeps its connection and the memory of
/// the last picture for the next: sharing memory anew costs a third of a picture's time.
class ScreenGrabber {
 public:
  /// Uses a session that has just been opened.
  explicit ScreenGrabber(Session session);
  ScreenGrabber(const ScreenGrabber&) = delete;
  ScreenGrabber& operator=(const ScreenGrabber&) = delete;
  ~ScreenGrabber();

  /// To be called before each further use. False when the server has gone.
  bool renew(Deadline deadline) { return session_.renew(deadline); }

  [[nodiscard]] bool alive() const { return session_.alive(); }

  /// Whether the server has not answered by the deadline.
  [[nodiscard]] bool late() const { return session_.late(); }

  /// Takes the picture of an area that lies within the screen. Nothing when it worked, else why
  /// not.
  std::optional<std::string> grab(const Area& area);

  /// The last picture, row by row without gaps; each pixel has blue in its lowest byte, then green
  /// and red. Null before the first. Valid until the next use.
  [[nodiscard]] const std::uint32_t* pixels() const { return pixels_; }

 private:
  bool share(std::size_t size);
  bool grabShared(const Area& area);
  bool grabCopied(const Area& area);

  Session session_;
  bool canShare_ = false;
  bool canSeePointer_ = false;
  std::optional<SharedSegment> segment_;
  Reply<xcb_get_image_reply_t> copy_;
  std::uint32_t* pixels_ = nullptr;
};

}  // namespace tervain::Linux::X11
