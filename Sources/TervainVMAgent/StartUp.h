#pragma once

#include <cstdint>

namespace tervain {

/// The port that the text of `TERVAIN_AGENT_PORT` names, or the default one for a null pointer and
/// for anything that is not a decimal unsigned 32-bit integer with at most one sign before it.
std::uint32_t choosePort(const char* text);

/// Starts the agent and serves for good. Returns only the exit status of a start that failed.
int runAgent();

}  // namespace tervain
