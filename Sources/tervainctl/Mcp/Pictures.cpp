#include "tervainctl/Mcp/Pictures.h"

#include <cmath>

#include "VMAgentClient/Refusal.h"
#include "VMAgentCore/Base64/Base64.h"
#include "tervainctl/CommandTable/Arguments.h"
#include "tervainctl/Mcp/Results.h"

namespace tervain::mcp {
namespace {

/// More than this models don't get to see anyway: hosts scale it down for them.
constexpr int usualLongest = 1280;

/// The most bytes of a picture as base64, which with the rest of its message stays below 1 MiB.
constexpr std::size_t mostEncoded = 1'000'000;

Frame frameOf(const Json& region) {
  const auto part = [&region](const char* name) { return integerMember(region, name).value_or(0); };
  return {part("x"), part("y"), part("width"), part("height")};
}

/// The display in points, from its own top left.
Frame displayOf(const Json& reply) {
  const auto number = [&reply](const char* key, double otherwise) {
    const auto member = reply.find(key);
    const bool is = member != reply.end() && member->is_number() && member->get<double>() > 0;
    return is ? member->get<double>() : otherwise;
  };
  const double scale = number("scale", 1);
  const auto points = [scale](double pixels) {
    return static_cast<std::int64_t>(std::fmin(std::ceil(pixels / scale), 1e6));
  };
  return {0, 0, points(number("width", 0)), points(number("height", 0))};
}

/// The part of the display that a region means. What lies beyond the display is left out.
Frame partOf(const Frame& display, const Frame& region) {
  const auto part = intersection(display, region);
  if (!part) {
    throw ctl::BadArgument(
        "nothing of the region is on the display; take a screenshot without one");
  }
  return *part;
}

/// Compresses it more and more, and then makes it smaller, until it is small enough.
Screenshot smallEnough(const Json& reply, PictureWish wish) {
  Screenshot picture = screenshotOf(reply, wish);
  for (const int quality : {75, 60, 45, 30}) {
    if (picture.jpeg.size() / 3 * 4 < mostEncoded) {
      return picture;
    }
    wish.quality = quality;
    picture = screenshotOf(reply, wish);
  }
  while (picture.jpeg.size() / 3 * 4 >= mostEncoded) {
    wish.longest = std::max(picture.width, picture.height) * 3 / 4;
    picture = screenshotOf(reply, wish);
  }
  return picture;
}

/// The agent takes a display that does not exist for the first one.
void checkDisplay(AgentConnection& connection, std::int64_t display, Deadline deadline) {
  const Json reply = successOf(connection, Json{{"op", "ping"}}, deadline);
  const auto displays = reply.find("displays");
  const std::size_t count = displays != reply.end() && displays->is_array() ? displays->size() : 0;
  if (static_cast<std::size_t>(display) >= count) {
    throw ctl::BadArgument("there is no display " + std::to_string(display) + ", as there are " +
                           std::to_string(count) + ", counted from 0");
  }
}

std::string base64(std::string_view bytes) {
  std::string text;
  appendBase64(text, bytes);
  std::erase(text, '\\');  // it was made for JSON text, which this becomes only later
  return text;
}

std::string caption(std::int64_t display, const Screenshot& picture) {
  const std::string size = std::to_string(picture.width) + "x" + std::to_string(picture.height);
  if (display == 0) {
    return "This picture is " + size +
           " pixels. Coordinates of click, move, drag and region are its pixels from now on.";
  }
  return "This picture of display " + std::to_string(display) + " is " + size +
         " pixels. Where on the desktop it lies is not known, so coordinates stay those of the "
         "last picture of the main display.";
}

}  // namespace

Json takePicture(AgentConnection& connection, const Json& arguments, Space& space,
                 Deadline deadline) {
  const std::int64_t display = integerMember(arguments, "display").value_or(0);
  if (display != 0) {
    checkDisplay(connection, display, deadline);
  }
  const Json reply =
      successOf(connection, Json{{"op", "screenshot"}, {"display", display}}, deadline);
  PictureWish wish;
  wish.longest = static_cast<int>(integerMember(arguments, "max").value_or(usualLongest));
  if (const auto region = arguments.find("region"); region != arguments.end()) {
    const Frame frame = frameOf(*region);
    wish.region = partOf(displayOf(reply), display == 0 ? space.toScreen(frame) : frame);
  }
  const Screenshot picture = smallEnough(reply, wish);
  if (display == 0) {
    space.use(picture);
  }
  Json result = textResult(caption(display, picture));
  const Json image{{"type", "image"}, {"data", base64(picture.jpeg)}, {"mimeType", "image/jpeg"}};
  result["content"].insert(result["content"].begin(), image);
  result["structuredContent"] = {
      {"display", display}, {"width", picture.width}, {"height", picture.height}};
  return result;
}

}  // namespace tervain::mcp
