#pragma once

#include "tervainctl/Mcp/Interruption.h"

namespace tervain::mcp {

/// Runs a command with the arguments of "exec". It is killed when it has not ended in time, and
/// when the call is interrupted. Throws AgentError.
Json runCommand(AgentConnection connection, const Json& arguments, Interruption& interruption);

}  // namespace tervain::mcp
