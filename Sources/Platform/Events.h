#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "Platform/Geometry.h"

/// Input events: made one by one and posted where the system's own input devices post theirs. The
/// numbers are those of macOS.
namespace tervain::Platform {

enum class MouseEventType : std::uint32_t {
  leftDown = 1,
  leftUp = 2,
  rightDown = 3,
  rightUp = 4,
  moved = 5,
  leftDragged = 6,
  otherDown = 25,
  otherUp = 26,
};

enum class MouseButton : std::uint32_t { left = 0, right = 1, center = 2 };

/// An event that has not been posted yet. Owns the system's object.
class Event {
 public:
  /// What the port keeps behind an event; each port defines its own.
  struct Handle;

  explicit Event(std::shared_ptr<Handle> handle) : handle_(std::move(handle)) {}
  Event(Event&&) = default;
  Event& operator=(Event&&) = default;
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  ~Event() = default;

  [[nodiscard]] Handle& handle() const { return *handle_; }

 private:
  std::shared_ptr<Handle> handle_;  // never shared: it can end what only the port knows
};

// The makers give nothing when the system can't make the event.

std::optional<Event> mouseEvent(MouseEventType type, Point location, MouseButton button);

/// One scroll by lines: positive `vertical` goes up, positive `horizontal` goes left.
std::optional<Event> scrollEvent(std::int32_t vertical, std::int32_t horizontal);

/// A key by its macOS virtual key code (of the US layout).
std::optional<Event> keyboardEvent(std::uint16_t keyCode, bool down);

/// Which click of a multi-click a mouse button event belongs to, from 1.
void setClickState(Event& event, std::int64_t clickState);

/// The modifiers held during a keyboard event, as macOS event flags. They replace all others.
void setFlags(Event& event, std::uint64_t flags);

/// Makes a keyboard event type this text whatever its key is. A surrogate pair may be split over
/// two events that follow each other.
void setUnicodeString(Event& event, std::u16string_view text);

/// Posts the event. It has no result: the system takes what it is given.
void post(const Event& event);

/// Lets time pass between events.
void pause(std::chrono::microseconds duration);

}  // namespace tervain::Platform
