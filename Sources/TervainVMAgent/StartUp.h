#pragma once

#include <cstdint>
#include <string_view>

namespace tervain {

/// The port that the text of `TERVAIN_AGENT_PORT` names, or the default one for a null pointer and
/// for anything that is not a decimal unsigned 32-bit integer with at most one sign before it.
std::uint32_t choosePort(const char* text);

/// Starts the agent and serves for good. Logs to a file (see `logToFile`), or to standard error
/// where none is named or it can't be opened. Returns only the exit status of a start that failed.
int runAgent(std::string_view logFile = {});

}  // namespace tervain
