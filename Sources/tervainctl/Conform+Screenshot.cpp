// Pictures of the screen.

#include <algorithm>
#include <cmath>

#include "VMAgentCore/Base64.h"
#include "tervainctl/ConformGuest.h"
#include "tervainctl/ConformPicture.h"

namespace tervain::ctl::conform {

std::optional<std::pair<int, int>> jpegSize(std::string_view bytes) {
  const auto at = [&](std::size_t i) {
    return i < bytes.size() ? int{static_cast<unsigned char>(bytes[i])} : 0;
  };
  if (!bytes.starts_with("\xff\xd8\xff") || !bytes.ends_with("\xff\xd9")) {
    return std::nullopt;
  }
  // Segments: FF, a marker, the length of what follows with its own two bytes. The size stands in
  // the one that starts the frame.
  for (std::size_t i = 2; at(i) == 0xFF;) {
    const int marker = at(i + 1);
    if (marker >= 0xC0 && marker <= 0xC2) {
      return std::pair(at(i + 7) * 256 + at(i + 8), at(i + 5) * 256 + at(i + 6));
    }
    i += 2 + static_cast<std::size_t>(at(i + 2)) * 256 + static_cast<std::size_t>(at(i + 3));
  }
  return std::nullopt;
}

std::string pictureFault(const Json& reply) {
  if (!hasMembers(reply, {"ok", "image", "format", "width", "height", "scale"}) ||
      reply["ok"] != true || reply["format"] != "jpeg" || !reply["image"].is_string() ||
      !reply["width"].is_number_unsigned() || !reply["height"].is_number_unsigned() ||
      !reply["scale"].is_number() || reply["scale"] <= 0) {
    return "not the documented members: " + shown(reply);
  }
  const auto image = decodeBase64(reply["image"].get_ref<const std::string&>());
  if (!image) {
    return "the image is not base64";
  }
  const auto size = jpegSize(*image);
  if (!size) {
    return "the image is no whole JPEG";
  }
  return Json{size->first, size->second} == Json{reply["width"], reply["height"]}
             ? ""
             : "the image has other measures than the reply";
}

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
  if (!guest.granted(Grant::screenRecording)) {
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
