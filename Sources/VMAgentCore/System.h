#pragma once

#include <spawn.h>
#include <sys/types.h>

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

/// Completes the attributes and file actions of a spawn, after the actions that map 0, 1 and 2, so
/// that the child gets no other descriptor, whatever else other threads open meanwhile. Returns an
/// errno value, 0 for success.
[[nodiscard]] int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, short flags,
                                             posix_spawn_file_actions_t& actions);

/// A descriptor that becomes readable when a child of this process ends. It owns nothing of the
/// child, which must still be reaped. Empty where the system can't give one.
UniqueFD watchExit(pid_t child);

/// Makes writes to a socket or pipe whose reader has gone fail instead of raising SIGPIPE, where a
/// system can say so of one descriptor. Where it can't, the process ignores the signal anyway.
void suppressSigpipe(int fd);

/// Makes the memory of large requests and replies go back to the system as soon as they are done
/// with. To be called before any thread is started.
void returnLargeMemory();

}  // namespace tervain::System
