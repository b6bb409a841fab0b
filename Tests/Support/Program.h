#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Support/Deadline.h"
#include "Support/TempDir.h"
#include "VMAgentCore/Environment.h"

namespace tervain::test {

/// A program of the test's own. It is ended, and waited for, with this object.
class Program {
 public:
  enum class Errors { dropped, kept };

  /// Starts a program as the leader of a process group of its own. A name without a folder is one
  /// in `/usr/bin`. What it writes as errors can be kept with its output.
  explicit Program(std::vector<std::string> command,
                   const Environment& environment = processEnvironment(),
                   Errors errors = Errors::dropped);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  void signal(int number) const;

  /// Waits until it has ended by itself. Nothing when it does not; its exit status otherwise, or
  /// 128 more than the signal that ended it.
  std::optional<int> waitForEnd(Clock::duration limit = patience);

  /// What it has written so far.
  [[nodiscard]] std::string output() const;

  /// The first line that it writes, once it has; empty if it does not.
  [[nodiscard]] std::string line() const;

 private:
  TempDir dir_;
  pid_t pid_ = -1;
  std::optional<int> status_;
};

/// The content of a file; empty when it can't be read.
std::string textOf(const std::string& path);

}  // namespace tervain::test
