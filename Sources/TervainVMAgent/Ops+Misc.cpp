#include "Platform/Displays.h"
#include "Platform/Pointer.h"
#include "Platform/Privacy.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Rounding.h"

namespace tervain {
namespace {

/// How many displays a ping reports at the most.
constexpr std::size_t maxDisplays = 8;

Json describeDisplay(const Platform::Display& display) {
  return {{"id", display.id},
          {"width", display.width},
          {"height", display.height},
          {"main", display.isMain}};
}

}  // namespace

Reply ConnectionHandler::opPing() {
  Json displays = Json::array();
  for (const Platform::Display& display : Platform::activeDisplays(maxDisplays)) {
    displays.push_back(describeDisplay(display));
  }
  Json readiness;
  readiness["accessibility"] = Platform::accessibilityGranted();
  readiness["screenRecording"] = Platform::screenRecordingGranted();
  readiness["postEvent"] = Platform::postEventGranted();
  return Json{{"ok", true},
              {"version", AgentWire::version},
              {"displays", std::move(displays)},
              {"readiness", std::move(readiness)}};
}

Reply ConnectionHandler::opCursorPosition() {
  const auto location = Platform::pointerLocation();
  if (!location) {
    return Reply::failure("could not read the cursor position (no event source)");
  }
  return Json{
      {"ok", true}, {"x", roundedToInteger(location->x)}, {"y", roundedToInteger(location->y)}};
}

}  // namespace tervain
