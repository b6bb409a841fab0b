#pragma once

#include <optional>
#include <string_view>
#include <utility>

#include "VMAgentCore/Json.h"

namespace tervain::ctl::conform {

/// Width and height in pixels as a JPEG itself tells them; nothing for what is no whole JPEG.
std::optional<std::pair<int, int>> jpegSize(std::string_view bytes);

/// What is wrong with a reply to "screenshot". Empty when nothing is.
std::string pictureFault(const Json& reply);

}  // namespace tervain::ctl::conform
