#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <condition_variable>
#include <mutex>

#include "VMAgentCore/Deadline.h"
#include "VMAgentCore/UniqueFD.h"

/// What POSIX leaves to each system about descriptors and children. The port's folder implements
/// it.
namespace tervain::System {

struct Pipe {
  UniqueFD readEnd;
  UniqueFD writeEnd;
};

/// Makes a pipe whose ends no other program inherits. Throws AgentError.
Pipe makePipe();

/// Gives a pipe more room, where the system lets us: whoever writes much then waits less often.
void widen(int pipe);

/// Completes the attributes and file actions of a spawn, after the actions that map 0, 1 and 2, so
/// that the child gets no other descriptor, whatever else other threads open meanwhile. `flags` are
/// those that the attributes need so far. Returns an errno value, 0 for success.
[[nodiscard]] int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, short flags,
                                             posix_spawn_file_actions_t& actions);

/// A descriptor that becomes readable when a child of this process ends. It owns nothing of the
/// child, which must still be reaped. Empty where the system can't give one.
UniqueFD watchExit(pid_t child);

/// Makes writes to a socket or pipe whose reader has gone fail instead of raising SIGPIPE, where a
/// system can say so of one descriptor. Where it can't, the process ignores the signal anyway.
void suppressSigpipe(int fd);

/// What to poll a socket for, beside or instead of data, to be told at once of a peer that has left
/// while data of its is still unread. 0 where poll can't tell; `peerHasLeft` can everywhere.
extern const short peerLeft;

/// Whether a socket's peer has closed it, or its sending side of it, whatever is still unread.
bool peerHasLeft(int socket);

/// Waits for a notification, by the clock that nobody sets and until the deadline at the latest. It
/// may return early, as such waits do.
void waitFor(std::condition_variable& notified, std::unique_lock<std::mutex>& lock,
             Deadline deadline);

/// Waits until `condition` holds, of which `notified` tells. False when the deadline has passed.
template <class Condition>
bool waitUntil(std::condition_variable& notified, std::unique_lock<std::mutex>& lock,
               Deadline deadline, Condition condition) {
  while (!condition()) {
    if (Deadline::clock::now() >= deadline) {
      return false;
    }
    waitFor(notified, lock, deadline);
  }
  return true;
}

/// Makes the memory of large requests and replies go back to the system as soon as they are done
/// with. To be called before any thread is started.
void returnLargeMemory();

}  // namespace tervain::System
