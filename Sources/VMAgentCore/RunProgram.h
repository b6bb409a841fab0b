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
  std::string output;  ///< in the order it came, cut to `maxProgramOutput`
};

/// Where a program's standard error goes: to its output, or to our own standard error.
enum class ProgramErrors { kept, passedOn };

/// How much of a program's output is kept, in bytes: these are programs that answer a question.
inline constexpr std::size_t maxProgramOutput = 65'536;

/// Runs a program, with nothing to read, until it ends and everybody who has its output has closed
/// that. Nothing when this had not come by the deadline; it is killed then, with its process group.
/// Throws AgentError when it can't be started or waited for.
std::optional<ProgramResult> runProgram(const std::string& path, std::span<const std::string> args,
                                        const Environment& environment, Deadline deadline,
                                        ProgramErrors errors = ProgramErrors::kept);

}  // namespace tervain
