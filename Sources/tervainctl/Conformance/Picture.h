#pragma once

#include <string>

#include "VMAgentCore/Json.h"

namespace tervain::ctl::conform {

/// What is wrong with a reply to "screenshot". Empty when nothing is.
std::string pictureFault(const Json& reply);

}  // namespace tervain::ctl::conform
