#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Events.h"
#include "Platform/Pointer.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/KeyMap.h"
#include "VMAgentCore/Unicode.h"

namespace tervain {
namespace {

using Platform::Event;
using Platform::MouseButton;
using Platform::MouseEventType;
using Platform::Point;
using std::chrono::microseconds;

// The pace of a quick person, which every application follows.
constexpr microseconds clickHold{40'000};
constexpr microseconds clickGap{90'000};
constexpr microseconds dragRest{60'000};  // before the press, and before the release
constexpr microseconds dragStep{15'000};
constexpr microseconds keyHold{30'000};
constexpr microseconds typeGap{12'000};

constexpr int dragSteps = 12;
constexpr std::int64_t maxClicks = 3;
constexpr std::int64_t maxScrollLines = 40;
/// UTF-16 units that one event carries; applications on macOS drop what goes beyond 20.
constexpr std::size_t maxUnitsPerEvent = 16;

struct Button {
  MouseEventType down;
  MouseEventType up;
  MouseButton button;
};

Button chooseButton(const Json& request) {
  const std::string* name = stringMember(request, "button");
  if (name && *name == "right") {
    return {MouseEventType::rightDown, MouseEventType::rightUp, MouseButton::right};
  }
  if (name && *name == "middle") {
    return {MouseEventType::otherDown, MouseEventType::otherUp, MouseButton::center};
  }
  return {MouseEventType::leftDown, MouseEventType::leftUp, MouseButton::left};
}

std::optional<Point> pointField(const Json& request, std::string_view xKey, std::string_view yKey) {
  const auto x = intField(request, xKey);
  const auto y = intField(request, yKey);
  if (!x || !y) {
    return std::nullopt;
  }
  return Point{static_cast<double>(*x), static_cast<double>(*y)};
}

/// Posts an event of the left button, or of none. One that can't be made is left out.
void postMouse(MouseEventType type, Point location) {
  if (const auto event = mouseEvent(type, location, MouseButton::left)) {
    post(*event);
  }
}

/// The n-th click of a multi-click. False when its events can't be made.
bool clickOnce(const Button& button, Point location, std::int64_t n) {
  auto down = mouseEvent(button.down, location, button.button);
  auto up = mouseEvent(button.up, location, button.button);
  if (!down || !up) {
    return false;
  }
  setClickState(*down, n);
  setClickState(*up, n);
  post(*down);
  Platform::pause(clickHold);
  post(*up);
  return true;
}

/// Where a drag begins: where the pointer is, unless the request says otherwise.
Point dragStart(const Json& request) {
  Point start = Platform::pointerLocation().value_or(Point{0, 0});
  if (const auto x = intField(request, "fromX")) {
    start.x = static_cast<double>(*x);
  }
  if (const auto y = intField(request, "fromY")) {
    start.y = static_cast<double>(*y);
  }
  return start;
}

void dragTo(Point start, Point end) {
  for (int step = 1; step <= dragSteps; ++step) {
    const double t = static_cast<double>(step) / dragSteps;
    const Point between{start.x + (end.x - start.x) * t, start.y + (end.y - start.y) * t};
    Platform::pause(dragStep);
    postMouse(MouseEventType::leftDragged, step < dragSteps ? between : end);
  }
}

/// The lines to scroll on one axis. Nothing stays nothing.
std::int32_t scrollLines(std::optional<std::int64_t> lines) {
  return static_cast<std::int32_t>(std::clamp(lines.value_or(0), -maxScrollLines, maxScrollLines));
}

using KeyEvents = std::pair<Event, Event>;

/// The down and the up event of a key. Nothing when one of them can't be made.
std::optional<KeyEvents> keyEvents(std::uint16_t keyCode) {
  auto down = Platform::keyboardEvent(keyCode, /*down=*/true);
  auto up = Platform::keyboardEvent(keyCode, /*down=*/false);
  if (!down || !up) {
    return std::nullopt;
  }
  return KeyEvents(std::move(*down), std::move(*up));
}

Reply noKeyboardEvent() {
  return Reply::failure("could not create the keyboard event");
}

}  // namespace

Reply ConnectionHandler::opClick(const Json& request) {
  const auto location = pointField(request, "x", "y");
  if (!location) {
    return Reply::failure("click requires x and y");
  }
  const auto count = std::clamp<std::int64_t>(intField(request, "count").value_or(1), 1, maxClicks);
  const Button button = chooseButton(request);
  postMouse(MouseEventType::moved, *location);
  for (std::int64_t n = 1; n <= count; ++n) {
    if (n > 1) {
      Platform::pause(clickGap);
    }
    if (!clickOnce(button, *location, n)) {
      return Reply::failure("could not create the mouse event");
    }
  }
  return Reply::success();
}

Reply ConnectionHandler::opMove(const Json& request) {
  const auto location = pointField(request, "x", "y");
  if (!location) {
    return Reply::failure("move requires x and y");
  }
  postMouse(MouseEventType::moved, *location);
  return Reply::success();
}

Reply ConnectionHandler::opDrag(const Json& request) {
  const auto end = pointField(request, "toX", "toY");
  if (!end) {
    return Reply::failure("drag requires toX and toY");
  }
  const Point start = dragStart(request);
  postMouse(MouseEventType::moved, start);
  Platform::pause(dragRest);
  postMouse(MouseEventType::leftDown, start);
  dragTo(start, *end);
  Platform::pause(dragRest);
  postMouse(MouseEventType::leftUp, *end);
  return Reply::success();
}

Reply ConnectionHandler::opScroll(const Json& request) {
  const std::int32_t vertical = scrollLines(intField(request, "dy"));
  const std::int32_t horizontal = scrollLines(intField(request, "dx"));
  if (vertical == 0 && horizontal == 0) {
    return Reply::failure("scroll requires dx and/or dy");
  }
  const auto event = Platform::scrollEvent(vertical, horizontal);
  if (!event) {
    return Reply::failure("could not create the scroll event");
  }
  post(*event);
  return Reply::success();
}

Reply ConnectionHandler::opType(const Json& request) {
  const std::string* text = stringMember(request, "text");
  if (!text || text->empty()) {
    return Reply::failure("type requires non-empty \"text\"");
  }
  const std::u16string units = utf16(*text);
  for (std::u16string_view rest = units; !rest.empty();) {
    const std::u16string_view chunk = rest.substr(0, maxUnitsPerEvent);
    auto events = keyEvents(0);
    if (!events) {
      return noKeyboardEvent();
    }
    auto& [down, up] = *events;
    setUnicodeString(down, chunk);
    setUnicodeString(up, chunk);
    post(down);
    post(up);
    Platform::pause(typeGap);
    rest.remove_prefix(chunk.size());
  }
  return Reply::success();
}

Reply ConnectionHandler::opKey(const Json& request) {
  const std::string* chord = stringMember(request, "chord");
  if (!chord || chord->empty()) {
    return Reply::failure("key requires a \"chord\" (e.g. \"cmd+s\")");
  }
  const auto stroke = KeyMap::stroke(*chord);
  if (!stroke) {
    return Reply::failure("unrecognized key in chord \"" + *chord + "\"");
  }
  auto events = keyEvents(stroke->keyCode);
  if (!events) {
    return noKeyboardEvent();
  }
  auto& [down, up] = *events;
  setFlags(down, stroke->flags);
  setFlags(up, stroke->flags);
  post(down);
  Platform::pause(keyHold);
  post(up);
  return Reply::success();
}

}  // namespace tervain
