#pragma once

#include <sys/types.h>

#include <span>
#include <string>

#include "VMAgentCore/Environment.h"

namespace tervain {

/// Starts a program as the leader of a process group of its own, with the three descriptors as its
/// 0, 1 and 2 and no others. `path` is used as it stands, and is argv[0] too. The caller keeps the
/// descriptors and must reap the child. Throws AgentError with the spawn's error code.
pid_t spawnGroupLeader(const std::string& path, std::span<const std::string> args,
                       const Environment& environment, int stdinFD, int stdoutFD, int stderrFD);

/// The same for a program that stays in our process group, so that it may read from our terminal.
pid_t spawnInOurGroup(const std::string& path, std::span<const std::string> args,
                      const Environment& environment, int stdinFD, int stdoutFD, int stderrFD);

/// Waits for a child to end, and reaps it.
void reap(pid_t child);

}  // namespace tervain
