#include "VMAgentCore/System.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "VMAgentCore/AgentError.h"

namespace tervain::System {

Pipe makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw AgentError::posix("pipe", errno);
  }
  return {UniqueFD(ends[0]), UniqueFD(ends[1])};
}

int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, short flags,
                               posix_spawn_file_actions_t& actions) {
  // The agent ignores SIGPIPE, and an ignored signal stays ignored across exec: without this,
  // `yes | head` would end with an error message instead of silently.
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, static_cast<short>(flags | POSIX_SPAWN_SETSIGDEF));
  // This alone takes memory, and can fail.
  return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

UniqueFD watchExit(pid_t child) {
  return UniqueFD(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
}

void suppressSigpipe(int /*fd*/) {}

void returnLargeMemory() {
  // Left alone, glibc raises this threshold whenever a large block is freed, and from then on keeps
  // such blocks in the arenas of threads that have ended: megabytes that nobody uses.
  constexpr int threshold = 256 * 1024;
  mallopt(M_MMAP_THRESHOLD, threshold);
  mallopt(M_TRIM_THRESHOLD, threshold);
}

}  // namespace tervain::System
