#pragma once

#include <chrono>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentClient/AgentConnection.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// How long connecting may take, the first answer included. An agent that works does it in less
/// than a millisecond, one behind several other machines in a second or two.
inline constexpr std::chrono::milliseconds connectLimit{10'000};

/// Connects a stream socket that no other program inherits. Throws AgentError, and ProtocolError
/// when what leads to the agent can't reach it. A program that leads to the agent ends by itself
/// when its input does.
UniqueFD connectTo(const AgentAddress& address, std::chrono::milliseconds limit = connectLimit);

/// Waits until the agent has answered something, whatever state the guest's desktop is in: a
/// stopped agent still takes connections. Throws ProtocolError.
void awaitAnswer(AgentConnection& connection, std::chrono::milliseconds limit = connectLimit);

}  // namespace tervain
