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

struct Event::Handle {
  std::string line;  ///< what the test sees of the event
};

namespace {

const std::map<MouseEventType, const char*> typeNames{
    {MouseEventType::leftDown, "leftDown"},   {MouseEventType::leftUp, "leftUp"},
    {MouseEventType::rightDown, "rightDown"}, {MouseEventType::rightUp, "rightUp"},
    {MouseEventType::moved, "moved"},         {MouseEventType::leftDragged, "leftDragged"},
    {MouseEventType::otherDown, "otherDown"}, {MouseEventType::otherUp, "otherUp"}};
const std::map<MouseButton, const char*> buttonNames{
    {MouseButton::left, "left"}, {MouseButton::right, "right"}, {MouseButton::center, "center"}};

template <class... Parts>
std::string join(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

std::optional<Event> makeEvent(const std::string& line) {
  return test::scriptedEvents().canMake()
             ? std::optional<Event>(std::make_shared<Event::Handle>(Event::Handle{line}))
             : std::nullopt;
}

}  // namespace

std::optional<Event> mouseEvent(MouseEventType type, Point location, MouseButton button) {
  return makeEvent(
      join(typeNames.at(type), ' ', location.x, ',', location.y, ' ', buttonNames.at(button)));
}

std::optional<Event> scrollEvent(std::int32_t vertical, std::int32_t horizontal) {
  return makeEvent(join("scroll ", vertical, ',', horizontal));
}

std::optional<Event> keyboardEvent(std::uint16_t keyCode, bool down) {
  return makeEvent(join("key ", keyCode, down ? " down" : " up"));
}

void setClickState(Event& event, std::int64_t clickState) {
  event.handle().line += join(" click ", clickState);
}

void setFlags(Event& event, std::uint64_t flags) {
  event.handle().line += join(" flags ", std::hex, flags);
}

void setUnicodeString(Event& event, std::u16string_view text) {
  event.handle().line += " text";
  for (const char16_t unit : text) {
    event.handle().line += join(' ', std::hex, static_cast<unsigned>(unit));
  }
}

void post(const Event& event) {
  auto& script = test::scriptedEvents();
  script.posted.push_back(event.handle().line);
  if (script.onPost) {
    script.onPost(script.posted.back());
  }
}

void pause(std::chrono::microseconds duration) {
  test::scriptedEvents().posted.push_back(join("wait ", duration.count()));
}

}  // namespace Platform
}  // namespace tervain
