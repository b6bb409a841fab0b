#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Support/Peer.h"
#include "Support/Processes.h"
#include "Support/Program.h"
#include "Support/TempDir.h"
#include "VMAgentCore/Environment.h"

namespace tervain::test {

/// The real executable, serving a Unix socket that was handed over to it. Its environment is this
/// process's without a display or buses, with the system shell for commands, and with what the test
/// adds. It is ended, and waited for, with this object.
///
/// Where `TERVAIN_TEST_VSOCK` is set, on a machine that has a vsock loopback, it opens its own
/// listener instead.
class AgentProcess {
 public:
  /// How the executable is started: these words come before its path.
  struct Options {
    std::map<std::string, std::string> environment{};
    std::vector<std::string> prefix{};
  };

  AgentProcess() : AgentProcess(Options{}) {}
  explicit AgentProcess(const Options& options);

  [[nodiscard]] Peer connect() const {
    return vsockPort_ ? Peer::connect(*vsockPort_) : Peer::connect(socket_);
  }
  [[nodiscard]] const std::string& socket() const { return socket_; }
  [[nodiscard]] pid_t pid() const { return program_->pid(); }

  /// What the agent has logged so far.
  [[nodiscard]] std::string log() const { return program_->output(); }

  [[nodiscard]] Footprint footprint() const { return footprintOf(pid()); }

  /// Resident memory in bytes.
  [[nodiscard]] std::size_t residentBytes() const { return residentBytesOf(pid()); }

  /// The most it ever was.
  [[nodiscard]] std::size_t peakBytes() const { return peakBytesOf(pid()); }

 private:
  TempDir dir_;
  std::string socket_;
  std::optional<std::uint32_t> vsockPort_;
  std::optional<Program> program_;
};

/// Runs a program to its end: its exit status and what it wrote to standard error.
struct Ended {
  int status;
  std::string err;
};
Ended runToEnd(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& environment,
               Clock::duration limit = patience);

}  // namespace tervain::test
