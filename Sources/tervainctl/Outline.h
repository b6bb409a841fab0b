#pragma once

#include <string>

#include "VMAgentCore/Json.h"

namespace tervain::ctl {

/// An element and what lies below it, a line each, two spaces further in at each level: its ref,
/// role and subrole, title, ="value", position and size, states, and actions in brackets. What an
/// element does not tell is left out. Ends with a line feed.
std::string outline(const Json& node);

}  // namespace tervain::ctl
