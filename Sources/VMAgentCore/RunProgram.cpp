#include "VMAgentCore/RunProgram.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>
#include <utility>

#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

/// A child that leads a group of its own. One that has not been waited for is killed, and reaped.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (pid_ > 0) {
      kill(-pid_, SIGKILL);
      waitForEnd(pid_);
    }
  }

  /// How it has ended.
  int wait() {
    int status = waitForEnd(std::exchange(pid_, 0));  // which the macros of some systems cast
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  pid_t pid_;
};

}  // namespace

std::optional<ProgramResult> runProgram(const std::string& path, std::span<const std::string> args,
                                        const Environment& environment, Deadline deadline) {
  const UniqueFD nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  System::Pipe pipe = System::makePipe();
  const int out = pipe.writeEnd.get();
  Child child(spawnGroupLeader(path, args, environment, nothing.get(), out, out));
  pipe.writeEnd.reset();
  ProgramResult result{0, {}};
  if (!readToEnd(pipe.readEnd.get(), result.output, maxProgramOutput, deadline)) {
    return std::nullopt;
  }
  result.status = child.wait();
  return result;
}

}  // namespace tervain
