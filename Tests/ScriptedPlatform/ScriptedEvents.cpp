#include "ScriptedPlatform/ScriptedEvents.h"

#include <map>
#include <sstream>
#include <utility>

#include "Platform/Events.h"

namespace tervain {

test::ScriptedEvents& test::scriptedEvents() {
  static ScriptedEvents events;
  return events;
}

namespace Platform {

/// What stands before and after what is set later.
struct Event::Handle {
  std::string start;
  std::string end{};
};

namespace {

std::string name(MouseEventType type) {
  static const std::map<MouseEventType, std::string> names{
      {MouseEventType::leftDown, "leftDown"},   {MouseEventType::leftUp, "leftUp"},
      {MouseEventType::rightDown, "rightDown"}, {MouseEventType::rightUp, "rightUp"},
      {MouseEventType::moved, "moved"},         {MouseEventType::leftDragged, "leftDragged"},
      {MouseEventType::otherDown, "otherDown"}, {MouseEventType::otherUp, "otherUp"}};
  return names.at(type);
}

std::string name(MouseButton button) {
  static const std::map<MouseButton, std::string> names{
      {MouseButton::left, "left"}, {MouseButton::right, "right"}, {MouseButton::center, "center"}};
  return names.at(button);
}

template <class... Parts>
std::string join(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

std::optional<Event> makeEvent(std::string start) {
  if (!test::scriptedEvents().canMake()) {
    return std::nullopt;
  }
  return Event(std::make_unique<Event::Handle>(Event::Handle{std::move(start)}));
}

}  // namespace

Event::Event(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
Event::Event(Event&&) noexcept = default;
Event& Event::operator=(Event&&) noexcept = default;
Event::~Event() = default;

std::optional<Event> mouseEvent(MouseEventType type, Point location, MouseButton button) {
  return makeEvent(join(name(type), ' ', location.x, ',', location.y, ' ', name(button)));
}

std::optional<Event> scrollEvent(std::int32_t vertical, std::int32_t horizontal) {
  return makeEvent(join("scroll ", vertical, ',', horizontal));
}

std::optional<Event> keyboardEvent(std::uint16_t keyCode, bool down) {
  return makeEvent(join("key ", keyCode, down ? " down" : " up"));
}

void setClickState(Event& event, std::int64_t clickState) {
  event.handle().end += join(" click ", clickState);
}

void setFlags(Event& event, std::uint64_t flags) {
  event.handle().end += join(" flags ", std::hex, flags);
}

void setUnicodeString(Event& event, std::u16string_view text) {
  event.handle().end += " text";
  for (const char16_t unit : text) {
    event.handle().end += join(' ', std::hex, static_cast<unsigned>(unit));
  }
}

void post(const Event& event) {
  test::scriptedEvents().posted.push_back(event.handle().start + event.handle().end);
}

void pause(std::chrono::microseconds duration) {
  test::scriptedEvents().posted.push_back(join("wait ", duration.count()));
}

}  // namespace Platform
}  // namespace tervain
