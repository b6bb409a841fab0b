#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Support/Peer.h"
#include "Support/TempDir.h"

namespace tervain::test {

/// The real executable, serving a Unix socket that was handed over to it. Its environment is this
/// process's without a display or buses, with the system shell for commands, and with what the
/// test adds. It is ended, and waited for, with this object.
class AgentProcess {
 public:
  /// How the executable is started: these words come before its path.
  struct Options {
    std::map<std::string, std::string> environment;
    std::vector<std::string> prefix;
  };

  explicit AgentProcess(const Options& options = {});
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  [[nodiscard]] Peer connect() const { return Peer::connect(socket_); }
  [[nodiscard]] const std::string& socket() const { return socket_; }
  [[nodiscard]] pid_t pid() const { return pid_; }

  /// What the agent has logged so far.
  [[nodiscard]] std::string log() const;

  /// Whether it is still running.
  [[nodiscard]] bool alive() const;

  /// What must not pile up. Children include the dead that nobody has reaped.
  struct Footprint {
    std::size_t descriptors;
    std::size_t threads;
    std::size_t children;
    bool operator==(const Footprint&) const = default;
  };
  [[nodiscard]] Footprint footprint() const;

  /// Resident memory in bytes.
  [[nodiscard]] std::size_t residentBytes() const;

 private:
  TempDir dir_;
  std::string socket_;
  pid_t pid_ = -1;
};

void PrintTo(const AgentProcess::Footprint& footprint, std::ostream* out);

/// Whether a process exists that has not ended, zombies being such as have.
bool isRunning(pid_t pid);

/// Runs a program to its end: its exit status and what it wrote to standard error.
struct Ended {
  int status;
  std::string err;
};
Ended runToEnd(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& environment);

}  // namespace tervain::test
