// What the agent says of itself, and of the pointer.

#include <algorithm>

#include "VMAgentCore/AgentWire.h"
#include "tervainctl/Conformance/Check.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

bool isDisplay(const Json& display) {
  return hasMembers(display, {"id", "width", "height", "main"}) &&
         display["id"].is_number_unsigned() && display["width"].is_number_unsigned() &&
         display["height"].is_number_unsigned() && display["main"].is_boolean();
}

void reportsItself(const Guest& guest, Findings& findings) {
  const Json reply = guest.ask({{"op", "ping"}, {"version", 7}, {"more", Json::array()}});
  if (!findings.expect(hasMembers(reply, {"ok", "version", "displays", "readiness"}),
                       "not the documented members: " + shown(reply))) {
    return;
  }
  findings.expectEqual("\"ok\"", reply["ok"], true);
  findings.expectEqual("\"version\"", reply["version"], AgentWire::version);
  const Json& readiness = reply["readiness"];
  findings.expect(hasMembers(readiness, {"accessibility", "screenRecording", "postEvent"}) &&
                      std::all_of(readiness.begin(), readiness.end(),
                                  [](const Json& value) { return value.is_boolean(); }),
                  "\"readiness\" is not three booleans: " + shown(readiness));
}

void listsDisplays(const Guest& guest, Findings& findings) {
  constexpr std::size_t mostDisplays = 8;
  const Json displays = guest.status().value("displays", Json());
  if (!findings.expect(displays.is_array() && displays.size() <= mostDisplays &&
                           std::all_of(displays.begin(), displays.end(), isDisplay),
                       "not a list of displays: " + shown(displays))) {
    return;
  }
  const auto mains = std::count_if(displays.begin(), displays.end(),
                                   [](const Json& display) { return display["main"] == true; });
  findings.expect(displays.empty() || mains == 1, "not one main display: " + shown(displays));
  findings.note(displays.empty() ? "there are none" : std::to_string(displays.size()));
}

void tellsThePointer(const Guest& guest, Findings& findings) {
  const Json reply = guest.ask({{"op", "cursor_position"}});
  if (guest.status().value("displays", Json::array()).empty() && !truthy(reply, "ok")) {
    findings.note("without a display there is none to be read");
    findings.expectEqual("cursor_position", reply,
                         failure("could not read the cursor position (no event source)"));
    return;
  }
  findings.expect(hasMembers(reply, {"ok", "x", "y"}) && reply["ok"] == true &&
                      reply["x"].is_number_integer() && reply["y"].is_number_integer(),
                  "not a position in whole numbers: " + shown(reply));
}

}  // namespace

std::vector<Check> statusChecks() {
  constexpr const char* area = "status";
  return {
      {area, "ping has version 2 and three grants, and nothing else", reportsItself},
      {area, "ping lists the displays, one of them the main one", listsDisplays},
      {area, "cursor_position has whole numbers", tellsThePointer},
  };
}

}  // namespace tervain::ctl::conform
