#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "Platform/Linux/OpenStatus.h"
#include "Platform/Workspace.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain::Platform {
namespace {

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

/// Milliseconds until a deadline, as poll wants them; -1 is for ever.
int pollTime(Deadline deadline) {
  if (deadline == Deadline::max()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Deadline::clock::now());
  return static_cast<int>(
      std::clamp<std::int64_t>(left.count(), 0, std::numeric_limits<int>::max()));
}

/// Reads to the end of a pipe. False when that does not come by the deadline.
bool readToEnd(int fd, std::string& text, Deadline deadline) {
  std::array<char, 1024> buffer{};
  for (;;) {
    pollfd readable{fd, POLLIN, 0};
    const int ready = poll(&readable, 1, pollTime(deadline));
    if (ready == 0) {
      return false;
    }
    const ssize_t n = ready < 0 ? -1 : readSome(fd, buffer);
    if (n > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      return true;
    }
  }
}

int reap(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

/// Runs the command to its end. Nothing when it was still at work at the deadline and was ended.
std::optional<Ended> runOpen(const std::vector<std::string>& arguments, Deadline deadline) {
  const UniqueFD null(open("/dev/null", O_RDWR | O_CLOEXEC));
  System::Pipe pipe = System::makePipe();
  const pid_t child = spawnGroupLeader(openCommand(), arguments, processEnvironment(), null.get(),
                                       pipe.writeEnd.get(), STDERR_FILENO);
  pipe.writeEnd.reset();
  Ended ended{0, {}};
  const bool inTime = readToEnd(pipe.readEnd.get(), ended.words, deadline);
  if (!inTime) {
    kill(child, SIGKILL);
  }
  ended.status = reap(child);
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
