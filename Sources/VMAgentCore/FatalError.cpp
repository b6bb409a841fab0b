#include "VMAgentCore/FatalError.h"

#include <cstdlib>
#include <string>

#include "VMAgentCore/Log.h"

namespace tervain {

void fatalError(std::string_view why) {
  agentLog("fatal error: " + std::string(why));
  std::abort();
}

}  // namespace tervain
