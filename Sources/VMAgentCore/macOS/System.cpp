#include "VMAgentCore/System.h"

#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

#include <cerrno>

#include "VMAgentCore/AgentError.h"

namespace tervain::System {
namespace {

void closeOnExec(const UniqueFD& fd) {
  fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
}

}  // namespace

Pipe makePipe() {
  int ends[2];
  if (pipe(ends) != 0) {
    throw AgentError::posix("pipe", errno);
  }
  Pipe made{UniqueFD(ends[0]), UniqueFD(ends[1])};
  closeOnExec(made.readEnd);
  closeOnExec(made.writeEnd);
  return made;
}

int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, short flags,
                               posix_spawn_file_actions_t& /*actions*/) {
  // Closes whatever no file action has mapped.
  return posix_spawnattr_setflags(&attributes,
                                  static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT));
}

UniqueFD watchExit(pid_t child) {
  UniqueFD queue(kqueue());
  if (!queue) {
    return {};
  }
  closeOnExec(queue);
  struct kevent exit {};
  EV_SET(&exit, static_cast<uintptr_t>(child), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  // Fails for a child that has ended already, which the next look at it shows anyway.
  return kevent(queue.get(), &exit, 1, nullptr, 0, nullptr) == 0 ? std::move(queue) : UniqueFD();
}

void suppressSigpipe(int fd) {
  fcntl(fd, F_SETNOSIGPIPE, 1);
}

/// The system's allocator gives large blocks back by itself.
void returnLargeMemory() {}

}  // namespace tervain::System
