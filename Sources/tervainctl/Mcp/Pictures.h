#pragma once

#include "VMAgentClient/AgentConnection.h"
#include "tervainctl/Mcp/Space.h"

namespace tervain::mcp {

/// Takes the picture that the arguments of "screenshot" want, and makes coordinates its pixels if
/// it is of the main display. Throws what AgentConnection::request throws, Refusal, BadWish and
/// BadArgument.
Json takePicture(AgentConnection& connection, const Json& arguments, Space& space,
                 Deadline deadline);

}  // namespace tervain::mcp
