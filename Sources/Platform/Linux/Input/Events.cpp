#include "Platform/Events.h"

#include <xcb/xtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <variant>

#include "Platform/Linux/Input/Keyboard.h"
#include "Platform/Linux/Input/MacKeys.h"
#include "Platform/Linux/X11/Session.h"

namespace tervain::Platform {

using namespace Linux;

namespace {

struct Mouse {
  MouseEventType type;
  Point location;
  MouseButton button;
};

struct Scroll {
  std::int32_t vertical;
  std::int32_t horizontal;
};

struct Key {
  std::uint16_t keyCode;
  bool down;
  std::uint64_t flags = 0;
  std::u16string text{};
};

/// How long one pointer event may take where the server is slow.
constexpr std::chrono::seconds postLimit{5};

// What X calls the wheel.
constexpr std::uint8_t wheelUp = 4;
constexpr std::uint8_t wheelDown = 5;
constexpr std::uint8_t wheelLeft = 6;
constexpr std::uint8_t wheelRight = 7;

std::uint8_t buttonNumber(MouseButton button) {
  switch (button) {
    case MouseButton::left:
      return 1;
    case MouseButton::center:
      return 2;
    case MouseButton::right:
      return 3;
  }
  return 1;
}

std::int16_t coordinate(double value) {
  using Limits = std::numeric_limits<std::int16_t>;
  return static_cast<std::int16_t>(
      std::lround(std::clamp<double>(value, Limits::min(), Limits::max())));
}

void sendMotion(X11::Session& x11, Point location) {
  xcb_test_fake_input(x11.get(), XCB_MOTION_NOTIFY, /*detail: absolute*/ 0, XCB_CURRENT_TIME,
                      x11.screen().root, coordinate(location.x), coordinate(location.y), 0);
}

void sendButton(X11::Session& x11, std::uint8_t button, bool down) {
  xcb_test_fake_input(x11.get(), down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, button,
                      XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

void sendWheel(X11::Session& x11, std::int32_t lines, std::uint8_t positive,
               std::uint8_t negative) {
  for (std::int32_t line = 0; line < std::abs(lines); ++line) {
    const std::uint8_t button = lines > 0 ? positive : negative;
    sendButton(x11, button, /*down=*/true);
    sendButton(x11, button, /*down=*/false);
  }
}

/// Where a button went down, and over which of the root's windows.
struct Press {
  std::int16_t x;
  std::int16_t y;
  xcb_window_t window;
};

/// Of the press that is not released yet. Whoever presses a button releases it, on the same thread.
thread_local std::optional<Press> pressed;

/// Leaves a popup by its side and comes back. The server tells nobody that the pointer has entered
/// a window which came up under it while a button was held, and GTK 4 takes a click on a menu that
/// was not entered for one beside it.
void enterAnew(X11::Session& x11, xcb_window_t window, Point location) {
  const auto attributes = x11.await(xcb_get_window_attributes(x11.get(), window));
  const auto frame = x11.await(xcb_get_geometry(x11.get(), window));
  if (!attributes || !frame || attributes->override_redirect == 0) {
    return;
  }
  const int beside = frame->x > 0 ? frame->x - 1 : frame->x + frame->width;
  sendMotion(x11, {static_cast<double>(beside), location.y});
  sendMotion(x11, location);
}

/// A menu that a press has opened takes any motion before the release for a choice from it. So the
/// pointer is not moved to where it is.
void sendButtonAt(X11::Session& x11, const Mouse& mouse, bool down) {
  const auto place = [&x11] { return x11.await(xcb_query_pointer(x11.get(), x11.screen().root)); };
  auto at = place();
  if (!at || at->root_x != coordinate(mouse.location.x) ||
      at->root_y != coordinate(mouse.location.y)) {
    sendMotion(x11, mouse.location);
    at = place();
  }
  sendButton(x11, buttonNumber(mouse.button), down);
  if (!at) {
    return;
  }
  if (down) {
    pressed = Press{at->root_x, at->root_y, at->child};
  } else if (const auto press = std::exchange(pressed, std::nullopt);
             press && press->x == at->root_x && press->y == at->root_y) {
    const auto now = place();
    if (now && now->child != press->window && now->child != XCB_NONE) {
      enterAnew(x11, now->child, mouse.location);
    }
  }
}

void send(X11::Session& x11, const Mouse& mouse) {
  switch (mouse.type) {
    case MouseEventType::leftDown:
    case MouseEventType::rightDown:
    case MouseEventType::otherDown:
      return sendButtonAt(x11, mouse, /*down=*/true);
    case MouseEventType::leftUp:
    case MouseEventType::rightUp:
    case MouseEventType::otherUp:
      return sendButtonAt(x11, mouse, /*down=*/false);
    case MouseEventType::moved:
    case MouseEventType::leftDragged:
      return sendMotion(x11, mouse.location);
  }
}

void send(X11::Session& x11, const Scroll& scroll) {
  sendWheel(x11, scroll.vertical, wheelUp, wheelDown);
  sendWheel(x11, scroll.horizontal, wheelLeft, wheelRight);
}

template <class PointerEvent>
void postEvent(const PointerEvent& event) {
  auto x11 = X11::Session::open(after(postLimit));
  if (x11 && x11->has(xcb_test_id)) {
    send(*x11, event);
    x11->roundTrip();
  }
}

/// A text is typed as a whole when its key goes down.
void postEvent(const Key& key) {
  X11::Keyboard& keyboard = X11::Keyboard::shared();
  if (!key.text.empty()) {
    if (key.down) {
      keyboard.type(key.text);
    }
  } else if (key.down) {
    keyboard.press(key.keyCode, key.flags);
  } else {
    keyboard.release(key.keyCode, key.flags);
  }
}

}  // namespace

struct Event::Handle {
  std::variant<Mouse, Scroll, Key> event;
};

namespace {

std::optional<Event> makeEvent(std::variant<Mouse, Scroll, Key> event) {
  return Event(std::make_shared<Event::Handle>(Event::Handle{std::move(event)}));
}

}  // namespace

std::optional<Event> mouseEvent(MouseEventType type, Point location, MouseButton button) {
  return makeEvent(Mouse{type, location, button});
}

std::optional<Event> scrollEvent(std::int32_t vertical, std::int32_t horizontal) {
  return makeEvent(Scroll{vertical, horizontal});
}

std::optional<Event> keyboardEvent(std::uint16_t keyCode, bool down) {
  if (!X11::symbolsOfMacKey(keyCode)) {
    return std::nullopt;
  }
  return makeEvent(Key{keyCode, down});
}

void setClickState(Event& /*event*/, std::int64_t /*clickState*/) {
  // Applications on X count clicks themselves.
}

void setFlags(Event& event, std::uint64_t flags) {
  std::get<Key>(event.handle().event).flags = flags;
}

void setUnicodeString(Event& event, std::u16string_view text) {
  std::get<Key>(event.handle().event).text = text;
}

void post(const Event& event) {
  std::visit([](const auto& posted) { postEvent(posted); }, event.handle().event);
}

void pause(std::chrono::microseconds duration) {
  std::this_thread::sleep_for(duration);
}

}  // namespace tervain::Platform
