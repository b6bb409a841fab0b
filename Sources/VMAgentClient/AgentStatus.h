#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VMAgentClient/AgentNames.h"
#include "VMAgentClient/Connect.h"

namespace tervain {

/// The privacy grants, by the names that the protocol has for them.
inline constexpr std::array<std::string_view, 3> grantNames{"accessibility", "screenRecording",
                                                            "postEvent"};

/// What an agent tells of itself.
struct AgentStatus {
  std::int64_t version = 0;
  std::vector<std::string> grants;  // those it has, of `grantNames`
};

/// Which of these grants are not among those of an agent, in words; empty if none.
std::string missingGrants(const AgentStatus& status, std::span<const std::string> wanted);

/// Asks an agent. Throws ProtocolError and AgentError.
AgentStatus statusOf(AgentConnection& connection, Deadline deadline);

/// An agent's status, or why it can't be told.
using Answer = std::variant<AgentStatus, std::string>;

/// Asks all of these agents at the same time, each for so long. An answer for each, in their order.
std::vector<Answer> askAll(std::span<const NamedAgent> agents,
                           std::chrono::milliseconds limit = connectLimit);

/// How long an agent must have answered, on one connection, to count as steady: one that starts,
/// finds something missing and ends is gone by then, and so is one whose desktop is still coming.
inline constexpr std::chrono::milliseconds steadyTime{2000};

/// Waits until an agent has these grants and has answered steadily, then on a further connection.
/// `onChange` is told why it is still waited, once for each reason. It returns only then: whoever
/// calls it has a limit of their own.
void waitUntilReady(const AgentAddress& address, std::span<const std::string> wantedGrants,
                    const std::function<void(const std::string& why)>& onChange);

}  // namespace tervain
