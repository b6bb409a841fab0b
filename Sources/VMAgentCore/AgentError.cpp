#include "VMAgentCore/AgentError.h"

#include <string>
#include <system_error>

namespace tervain {

AgentError::AgentError(std::string_view phrase, int code)
    : std::runtime_error(std::string(phrase) + " failed: " + std::generic_category().message(code)),
      code_(code) {}

}  // namespace tervain
