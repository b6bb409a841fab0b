#pragma once

// As much of CoreGraphics as the macOS port uses.

#include <CoreFoundation/CoreFoundation.h>

using CGPoint = Fake::Point;
using CGSize = Fake::Size;
using CGEventRef = struct FakeEvent*;
using CGEventSourceRef = struct FakeEventSource*;
using CGDirectDisplayID = std::uint32_t;
enum CGError : std::int32_t {};
enum CGEventType : std::uint32_t {};
enum CGMouseButton : std::uint32_t {};
enum CGEventFlags : std::uint64_t {};
enum CGEventField : std::uint32_t { kCGMouseEventClickState = 1 };
enum CGEventTapLocation : std::uint32_t { kCGHIDEventTap = 0, kCGSessionEventTap = 1 };
enum CGScrollEventUnit : std::uint32_t { kCGScrollEventUnitPixel = 0, kCGScrollEventUnitLine = 1 };

/// What a new event has of a chord that the session believes to be held.
constexpr const char* heldFlags = " flags 131072";
template <class... Parts>
CGEventRef fakeEvent(CGEventSourceRef source, const Parts&... what) {
  return Fake::create<CGEventRef>(
      Fake::event, (source ? "of a source: " : "") + Fake::line(what...) + heldFlags);
}
inline CGEventRef CGEventCreate(CGEventSourceRef source) {
  return fakeEvent(source, "nothing");
}
inline CGEventRef CGEventCreateMouseEvent(CGEventSourceRef source, CGEventType type, CGPoint at,
                                          CGMouseButton button) {
  return fakeEvent(source, "mouse", type, "at", at.x, at.y, "by", button);
}
template <class... Numbers>
CGEventRef CGEventCreateScrollWheelEvent2(CGEventSourceRef source, CGScrollEventUnit unit,
                                          std::uint32_t wheels, Numbers... each) {
  return fakeEvent(source, "scroll by unit", unit, "with", wheels, "wheels by", each...);
}
inline CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, UniChar key, bool down) {
  return fakeEvent(source, "key", key, down ? "down" : "up");
}
inline CGPoint CGEventGetLocation(CGEventRef event) {
  return Fake::text(event).starts_with("nothing") ? Fake::system().pointer : CGPoint{};
}
inline void CGEventSetIntegerValueField(CGEventRef event, CGEventField field, std::int64_t value) {
  Fake::text(event) += Fake::line(" field", field, "=", value);
}
inline void CGEventSetFlags(CGEventRef event, CGEventFlags flags) {
  std::string& text = Fake::text(event);
  text.resize(std::min(text.size(), text.find(" flags")));
  text += flags == 0 ? "" : Fake::line(" flags", std::uint64_t{flags});
}
inline void CGEventKeyboardSetUnicodeString(CGEventRef event, unsigned long length,
                                            const UniChar* units) {
  Fake::text(event) += " units";
  std::for_each_n(units, length, [&](UniChar u) { Fake::text(event) += ' ' + std::to_string(u); });
}
inline void CGEventPost(CGEventTapLocation tap, CGEventRef event) {
  Fake::system().request("tap", tap, Fake::text(event));
}

inline CGError CGGetActiveDisplayList(std::uint32_t limit, CGDirectDisplayID* ids,
                                      std::uint32_t* count) {
  const auto& displays = Fake::system().displays;
  if (displays.empty()) {
    return CGError{1000};
  }
  *count = std::min(limit, static_cast<std::uint32_t>(displays.size()));
  std::copy_n(displays.begin(), *count, ids);
  return CGError{};
}
inline std::size_t CGDisplayPixelsWide(CGDirectDisplayID id) {
  return std::size_t{id} + 1000;
}
inline std::size_t CGDisplayPixelsHigh(CGDirectDisplayID id) {
  return std::size_t{id} + 500;
}
inline std::uint32_t CGDisplayIsMain(CGDirectDisplayID id) {
  return id == Fake::system().displays.front() ? 8 : 0;
}

inline bool CGPreflightScreenCaptureAccess() {
  return Fake::system().grant == "capture";
}
inline bool CGPreflightPostEventAccess() {
  return Fake::system().grant == "post";
}
