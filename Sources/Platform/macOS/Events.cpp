#include "Platform/Events.h"

#include <CoreGraphics/CoreGraphics.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {

struct Event::Handle {
  CFRef<CGEventRef> event;  // never null
};

namespace {

/// The events come from no source of their own: the state of the input devices is not theirs.
constexpr CGEventSourceRef noSource = nullptr;

std::optional<Event> makeEvent(CFRef<CGEventRef> created) {
  if (!created) {
    return std::nullopt;
  }
  // It may have begun with the modifiers that the session takes to be held, those of an earlier
  // chord for one.
  CGEventSetFlags(created.get(), CGEventFlags{});
  return Event(std::make_shared<Event::Handle>(Event::Handle{std::move(created)}));
}

CGEventRef referenceTo(const Event& event) {
  return event.handle().event.get();
}

}  // namespace

std::optional<Event> mouseEvent(MouseEventType type, Point location, MouseButton button) {
  return makeEvent(CFRef<CGEventRef>::adopt(
      CGEventCreateMouseEvent(noSource, static_cast<CGEventType>(type), {location.x, location.y},
                              static_cast<CGMouseButton>(button))));
}

std::optional<Event> scrollEvent(std::int32_t vertical, std::int32_t horizontal) {
  return makeEvent(CFRef<CGEventRef>::adopt(CGEventCreateScrollWheelEvent2(
      noSource, kCGScrollEventUnitLine, /*wheelCount=*/2, vertical, horizontal, 0)));
}

std::optional<Event> keyboardEvent(std::uint16_t keyCode, bool down) {
  return makeEvent(CFRef<CGEventRef>::adopt(CGEventCreateKeyboardEvent(noSource, keyCode, down)));
}

void setClickState(Event& event, std::int64_t clickState) {
  CGEventSetIntegerValueField(referenceTo(event), kCGMouseEventClickState, clickState);
}

void setFlags(Event& event, std::uint64_t flags) {
  CGEventSetFlags(referenceTo(event), static_cast<CGEventFlags>(flags));
}

void setUnicodeString(Event& event, std::u16string_view text) {
  const std::vector<UniChar> units(text.begin(), text.end());
  CGEventKeyboardSetUnicodeString(referenceTo(event), units.size(), units.data());
}

void post(const Event& event) {
  CGEventPost(kCGHIDEventTap, referenceTo(event));
}

void pause(std::chrono::microseconds duration) {
  usleep(static_cast<useconds_t>(duration.count()));
}

}  // namespace tervain::Platform
