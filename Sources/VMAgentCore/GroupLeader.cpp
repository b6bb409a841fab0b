#include "VMAgentCore/GroupLeader.h"

#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "VMAgentCore/System.h"

namespace tervain {
namespace {

/// Darwin tells of a child that is stopped as well, whatever it is asked.
bool isEnd(const siginfo_t& change) {
  return change.si_code == CLD_EXITED || change.si_code == CLD_KILLED ||
         change.si_code == CLD_DUMPED;
}

int exitCode(const siginfo_t& end) {
  constexpr int byte = 0xFF;
  return end.si_code == CLD_EXITED ? end.si_status & byte : 128 + end.si_status;
}

}  // namespace

GroupLeader::GroupLeader(pid_t pid) : pid_(pid), exitWatch_(System::watchExit(pid)) {}

GroupLeader::~GroupLeader() {
  if (!exit_) {
    signal(SIGKILL);
  }
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void GroupLeader::poll() {
  if (exit_) {
    return;
  }
  siginfo_t end{};  // stays empty while nothing has happened to the child
  const int result = waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT);
  if (result != 0 || (end.si_pid != 0 && isEnd(end))) {
    exit_ = Exit{result == 0 ? exitCode(end) : unknownCode, std::chrono::steady_clock::now()};
    exitWatch_.reset();
  }
}

void GroupLeader::signal(int number) const {
  if (kill(-pid_, number) != 0) {
    kill(pid_, number);
  }
}

}  // namespace tervain
