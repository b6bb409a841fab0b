#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Linux/Launch/OpenStatus.h"
#include "Platform/Workspace.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain::Platform {

using namespace Linux;

namespace {

/// How much of what the command says is kept, in bytes: it says why it could not open something.
constexpr std::size_t maxWords = 65'536;

/// How the command that opens applications ended.
struct Ended {
  int status;         ///< as waitpid gives it
  std::string words;  ///< what it wrote to its standard output
};

/// The command that opens applications, "tervain-open". It has all that launching needs and the
/// agent should not carry for good, and its end leaves what it launched to the system. It is
/// installed beside the agent.
std::string openCommand() {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "tervain-open").string();
}

/// Runs the command to its end. Nothing when it was still at work at the deadline and was ended.
std::optional<Ended> runOpen(const std::vector<std::string>& arguments, Deadline deadline) {
  const UniqueFD null(open("/dev/null", O_RDWR | O_CLOEXEC));
  System::Pipe pipe = System::makePipe();
  const pid_t child = spawnGroupLeader(openCommand(), arguments, processEnvironment(), null.get(),
                                       pipe.writeEnd.get(), STDERR_FILENO);
  pipe.writeEnd.reset();
  Ended ended{0, {}};
  const bool inTime = readToEnd(pipe.readEnd.get(), ended.words, maxWords, deadline);
  if (!inTime) {
    kill(child, SIGKILL);
  }
  ended.status = waitForEnd(child);
  return inTime ? std::optional(std::move(ended)) : std::nullopt;
}

LaunchError describeFailure(const Ended& ended) {
  if (!ended.words.empty()) {
    return {ended.words};
  }
  return {"tervain-open ended with wait status " + std::to_string(ended.status)};
}

bool exitedWith(const Ended& ended, OpenStatus status) {
  return WIFEXITED(ended.status) && WEXITSTATUS(ended.status) == static_cast<int>(status);
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
