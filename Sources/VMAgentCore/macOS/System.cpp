#include "VMAgentCore/System.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/event.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

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

void widen(int /*pipe*/) {}  // they grow by themselves, and no further

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

/// A poll for POLLHUP would also return, with no event, whenever there is data.
const short peerLeft = 0;

bool peerHasLeft(int socket) {
  pollfd entry{socket, POLLHUP, 0};
  return poll(&entry, 1, 0) > 0 && (entry.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void waitFor(std::condition_variable& notified, std::unique_lock<std::mutex>& lock,
             Deadline deadline) {
  // wait_until would wait for a time of day here, and so for longer when the clock is set back. The
  // longest wait that fits is short enough for every member of timespec, and goes on after it.
  constexpr std::chrono::nanoseconds longest = std::chrono::hours(1);
  const auto left = std::clamp(std::chrono::nanoseconds(deadline - Deadline::clock::now()),
                               std::chrono::nanoseconds(0), longest);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  const timespec relative{static_cast<time_t>(seconds.count()),
                          static_cast<long>((left - seconds).count())};
  pthread_cond_timedwait_relative_np(notified.native_handle(), lock.mutex()->native_handle(),
                                     &relative);
}

/// The system's allocator gives large blocks back by itself.
void returnLargeMemory() {}

}  // namespace tervain::System
