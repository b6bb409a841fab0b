#pragma once

#include <sys/types.h>

#include <optional>

#include "VMAgentCore/Deadline.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// A child process that leads a group of its own. Goes down with its owner: a child that has not
/// ended by then is killed, with its group, and waited for.
///
/// A child that has ended is reaped by the destructor and not before. Until then its number is
/// nobody else's, so that a signal can never reach a stranger.
class GroupLeader {
 public:
  /// The exit code of a child whose end can't be told.
  static constexpr int unknownCode = -1;

  /// Takes over a child that was spawned as the leader of its group.
  explicit GroupLeader(pid_t pid);
  GroupLeader(const GroupLeader&) = delete;
  GroupLeader& operator=(const GroupLeader&) = delete;
  ~GroupLeader();

  struct Exit {
    int code;  ///< exit status 0 to 255, 128 + the signal that ended it, or `unknownCode`
    Deadline noticed;
  };

  /// How the child ended, once it is known to have.
  [[nodiscard]] const std::optional<Exit>& exit() const { return exit_; }

  /// Readable once the child has ended; -1 once that is known, or where nothing can tell.
  [[nodiscard]] int exitWatch() const { return exitWatch_.get(); }

  /// Looks whether the child has ended. Never waits.
  void poll();

  /// Waits for the child to end. False when it has not by the deadline. Throws AgentError.
  bool waitForEnd(Deadline deadline);

  /// Signals the whole group, or else the child alone. Any number may be tried.
  void signal(int number) const;

 private:
  pid_t pid_;
  UniqueFD exitWatch_;
  std::optional<Exit> exit_;
};

}  // namespace tervain
