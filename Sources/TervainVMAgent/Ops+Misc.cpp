#include <utility>

#include "Platform/Displays.h"
#include "Platform/Pointer.h"
#include "Platform/Privacy.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "TervainVMAgent/Launching.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Rounding.h"

namespace tervain {
namespace {

Json describeDisplay(const Platform::Display& display) {
  return {{"id", display.id},
          {"width", display.width},
          {"height", display.height},
          {"main", display.isMain}};
}

}  // namespace

Reply ConnectionHandler::opPing() {
  Json displays = Json::array();
  for (const Platform::Display& display : Platform::activeDisplays(AgentWire::maxDisplays)) {
    displays.push_back(describeDisplay(display));
  }
  // Member by member: an initializer list would first make an array of each pair.
  Json reply = Json::object();
  Json& readiness = reply["readiness"] = Json::object();
  readiness["accessibility"] = Platform::accessibilityGranted();
  readiness["screenRecording"] = Platform::screenRecordingGranted();
  readiness["postEvent"] = Platform::postEventGranted();
  reply["displays"] = std::move(displays);
  reply["version"] = AgentWire::version;
  reply["ok"] = true;
  return reply;
}

Reply ConnectionHandler::opCursorPosition() {
  const auto location = Platform::pointerLocation();
  if (!location) {
    return Reply::failure("could not read the cursor position (no event source)");
  }
  return Json{
      {"ok", true}, {"x", roundedToInteger(location->x)}, {"y", roundedToInteger(location->y)}};
}

Reply ConnectionHandler::opLaunchApp(const Json& request) const {
  const std::string* name = stringMember(request, "name");
  if (!name || name->empty()) {
    return Reply::failure("launch_app requires a non-empty \"name\"");
  }
  const auto failure = launchApplication(*name, settings_);
  return failure ? Reply::failure(*failure) : Reply::success();
}

}  // namespace tervain
