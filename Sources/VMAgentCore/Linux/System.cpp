#include "VMAgentCore/System.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "VMAgentCore/AgentError.h"

namespace tervain::System {

Pipe makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw AgentError::posix("pipe", errno);
  }
  return {UniqueFD(ends[0]), UniqueFD(ends[1])};
}

void widen(int pipe) {
  // Four times what it has. A user's pipes have 64 MiB in all, beyond which new ones are tiny.
  constexpr int size = 262'144;
  fcntl(pipe, F_SETPIPE_SZ, size);
}

int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, short flags,
                               posix_spawn_file_actions_t& actions) {
  posix_spawnattr_setflags(&attributes, flags);
  // This alone takes memory, and can fail.
  return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

UniqueFD watchExit(pid_t child) {
  return UniqueFD(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
}

void suppressSigpipe(int /*fd*/) {}

const short peerLeft = POLLRDHUP;

bool peerHasLeft(int socket) {
  pollfd entry{socket, peerLeft, 0};
  return poll(&entry, 1, 0) > 0;
}

void waitFor(std::condition_variable& notified, std::unique_lock<std::mutex>& lock,
             Deadline deadline) {
  notified.wait_until(lock, deadline);
}

void returnLargeMemory() {
  // Left alone, glibc raises this threshold whenever a large block is freed, and from then on keeps
  // such blocks in the arenas of threads that have ended: megabytes that nobody uses.
  constexpr int threshold = 256 * 1024;
  mallopt(M_MMAP_THRESHOLD, threshold);
  mallopt(M_TRIM_THRESHOLD, threshold);
}

}  // namespace tervain::System
