#include "VMAgentCore/FatalError.h"

#include <cstdlib>

#include "VMAgentCore/Log.h"

namespace tervain {

void fatalError(std::string_view why) {
  agentLog("fatal error: ", why);
  std::abort();
}

}  // namespace tervain
