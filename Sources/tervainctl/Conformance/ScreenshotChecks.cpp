// Pictures of the screen.

#include <algorithm>
#include <cmath>

#include "tervainctl/Conformance/Grants.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Picture.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

/// What of a reply does not change from one picture to the next.
Json measures(Json reply) {
  reply.erase("image");
  return reply;
}

/// Whether the picture is as large as a display, which is measured in pixels or in points.
bool fits(const Json& reply, const Json& display) {
  const auto scale = reply["scale"].get<double>();
  const auto matches = [&](const char* key) {
    const auto pixels = reply[key].get<double>();
    const auto length = display.value(key, 0.0);
    return pixels == length || std::abs(pixels - length * scale) <= scale;
  };
  return matches("width") && matches("height");
}

void takesPictures(const Guest& guest, Findings& findings) {
  if (!needs(guest, findings, Grant::screenRecording)) {
    return;
  }
  const Json reply = guest.ask({{"op", "screenshot"}});
  const std::string fault = pictureFault(reply);
  if (!findings.expect(fault.empty(), fault)) {
    return;
  }
  findings.note(shown(reply["width"]) + "x" + shown(reply["height"]) + ", scale " +
                shown(reply["scale"]));
  const Json displays = guest.status().value("displays", Json::array());
  findings.expect(std::any_of(displays.begin(), displays.end(),
                              [&](const Json& display) { return fits(reply, display); }),
                  shown(measures(reply)) + " fits none of " + shown(displays));
}

void takesTheFirstForUnknownDisplays(const Guest& guest, Findings& findings) {
  if (!isGranted(guest, Grant::screenRecording)) {
    const Refusal refusals[]{{R"({"op":"screenshot"})", ""},
                             {R"({"op":"screenshot","display":99})", ""}};
    expectRefusals(guest, findings, Grant::screenRecording, refusals);
    return;
  }
  AgentConnection host = guest.connect();
  const auto take = [&](const Json& display) {
    return host.request({{"op", "screenshot"}, {"display", display}}, soon());
  };
  const Json first = measures(take(0));
  for (const Json& display : {Json(99), Json(-1), Json("1"), Json(1.5), Json()}) {
    const Json reply = take(display);
    const std::string fault = pictureFault(reply);
    findings.expect(fault.empty(), shown(display) + ": " + fault);
    findings.expectEqual("display " + shown(display), measures(reply), first);
  }
}

}  // namespace

std::vector<Check> screenshotChecks() {
  return {
      {"screenshot", "the picture is a JPEG of a display's size", takesPictures},
      {"screenshot", "a display that does not exist is the first one",
       takesTheFirstForUnknownDisplays},
  };
}

}  // namespace tervain::ctl::conform
