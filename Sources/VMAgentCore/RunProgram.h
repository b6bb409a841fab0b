#pragma once

#include <optional>
#include <span>
#include <string>

#include "VMAgentCore/Deadline.h"
#include "VMAgentCore/Environment.h"

namespace tervain {

/// How a program ended, and what it said.
struct ProgramResult {
  int status;          ///< its exit status, or 128 and the number of the signal that ended it
  std::string output;  ///< standard output and standard error in the order they came, cut to
                       ///< `maxProgramOutput`
};

/// How much of a program's output is kept, in bytes: these are programs that answer a question.
inline constexpr std::size_t maxProgramOutput = 65'536;

/// Runs a program, with nothing to read, until it ends and everybody who has its output has closed
/// that. Nothing when this had not come by the deadline; it is killed then, with its process group.
/// Throws AgentError when it can't be started.
std::optional<ProgramResult> runProgram(const std::string& path, std::span<const std::string> args,
                                        const Environment& environment, Deadline deadline);

}  // namespace tervain
