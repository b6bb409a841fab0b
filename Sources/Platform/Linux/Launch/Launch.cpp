#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Linux/Launch/OpenStatus.h"
#include "Platform/Workspace.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/OwnPath.h"
#include "VMAgentCore/RunProgram.h"

namespace tervain::Platform {

using namespace Linux;

namespace {

/// Runs the command that opens applications to its end, and gives what it wrote to its standard
/// output. Nothing when it was still at work at the deadline and was ended.
///
/// "tervain-open" has all that launching needs and the agent should not carry for good, and its end
/// leaves what it launched to the system. It is installed beside the agent.
std::optional<ProgramResult> runOpen(const std::vector<std::string>& arguments, Deadline deadline) {
  const auto command = std::filesystem::path(ownPath()).parent_path() / "tervain-open";
  return runProgram(command.string(), arguments, processEnvironment(), deadline,
                    ProgramErrors::passedOn);
}

LaunchError describeFailure(const ProgramResult& ended) {
  return {ended.output.empty() ? "tervain-open ended with status " + std::to_string(ended.status)
                               : ended.output};
}

bool exitedWith(const ProgramResult& ended, OpenStatus status) {
  return ended.status == static_cast<int>(status);
}

}  // namespace

std::optional<LaunchError> openApplicationAt(const std::string& path, Deadline deadline) try {
  const auto ended = runOpen({path}, deadline);
  if (!ended || exitedWith(*ended, OpenStatus::opened)) {
    return std::nullopt;
  }
  return describeFailure(*ended);
} catch (const AgentError& error) {
  return LaunchError{std::string("tervain-open: ") + error.what()};
}

std::variant<int, LaunchError> openApplicationNamed(const std::string& name) try {
  const auto ended = runOpen({"-a", name}, Deadline::max());
  for (const OpenStatus status : {OpenStatus::opened, OpenStatus::unknown}) {
    if (exitedWith(*ended, status)) {
      return static_cast<int>(status);
    }
  }
  return describeFailure(*ended);
} catch (const AgentError& error) {
  return LaunchError{std::string("tervain-open: ") + error.what()};
}

}  // namespace tervain::Platform
