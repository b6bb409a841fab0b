#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "VMAgentCore/Environment.h"

namespace tervain {

/// One thing that must be so for a guest to be of use.
struct Finding {
  bool well = false;
  std::string what;
  std::string remedy{};  // what to do where it is not so
};

/// Looks at all that lies between this program and a working guest, in the order in which it has to
/// be mended, up to the first thing without which nothing behind it can be looked at. Each finding
/// is told as soon as there is one. Returns whether all is well. Throws AgentError.
bool diagnose(std::string_view agent, const Environment& environment,
              const std::function<void(const Finding&)>& tell);

}  // namespace tervain
