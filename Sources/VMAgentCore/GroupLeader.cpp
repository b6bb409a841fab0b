#include "VMAgentCore/GroupLeader.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"
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
  reap(pid_);
}

void GroupLeader::poll() {
  if (exit_) {
    return;
  }
  siginfo_t end{};  // stays empty while nothing has happened to the child
  const int result = waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT);
  if (result != 0 || (end.si_pid != 0 && isEnd(end))) {
    exit_ = Exit{result == 0 ? exitCode(end) : unknownCode, Clock::now()};
    exitWatch_.reset();
  }
}

bool GroupLeader::waitForEnd(Deadline deadline) {
  // How late an end is noticed that the system gives no descriptor to tell of.
  constexpr std::chrono::milliseconds tick{200};
  for (poll(); !exit_ && Clock::now() < deadline; poll()) {
    pollfd end{exitWatch(), POLLIN, 0};
    waitForEvents({&end, 1}, std::min(deadline, after(tick)));
  }
  return exit_.has_value();
}

void GroupLeader::signal(int number) const {
  if (kill(-pid_, number) != 0) {
    kill(pid_, number);
  }
}

}  // namespace tervain
