#pragma once

#include <string_view>

namespace tervain {

/// Writes "[TervainVMAgent] ", the message and a line feed to standard error, as a single write so
/// that lines of different threads never mix.
void agentLog(std::string_view message);

}  // namespace tervain
