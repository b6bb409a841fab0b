#include "tervainctl/Conformance/Picture.h"

#include <optional>
#include <utility>

#include "VMAgentCore/Base64/Base64.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

/// Width and height in pixels as a JPEG itself tells them; nothing for what is no whole JPEG.
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

}  // namespace

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

}  // namespace tervain::ctl::conform
