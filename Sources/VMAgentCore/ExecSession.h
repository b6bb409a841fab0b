#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VMAgentCore/Environment.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/LineSplitBuffer.h"

namespace tervain {

/// Runs one shell command for a host: starts it, streams its output as frames, applies the host's
/// frames to it, and reports its end. Single-threaded; everything it says, it says in frames.
///
/// Nothing is lost, and nothing waits for anything else: a command that does not read its input, or
/// a host that does not read its output, holds up that stream alone. Signals, the command's end and
/// the host's leaving are acted on at once.
///
/// Whatever ends the session, the command's process group does not outlive a host that has gone,
/// and no zombie or descriptor is left behind.
class ExecSession {
 public:
  /// The agent shell that runs commands.
  static constexpr std::string_view defaultDulkPath = "/usr/local/bin/dulk";
  /// The shell that runs them when the environment says TERVAIN_DULK_DISABLE=1.
  static constexpr std::string_view fallbackShellPath = "/bin/zsh";
  /// How long the session goes on once the command has ended, in milliseconds: descendants that
  /// keep its output open must not hold it.
  static constexpr int defaultPipeGraceMillis = 2000;
  /// What the host is told when the agent shell is not installed.
  static const std::string& dulkMissingMessage();

  /// A program to run, its arguments after argv[0], and its whole environment.
  struct Invocation {
    std::string path;
    std::vector<std::string> args;
    Environment env;
  };

  /// How a command is run: by the agent shell, which learns where to spool its events, or by the
  /// fallback shell if `environment` asks for that. Nothing when the agent shell is missing.
  static std::optional<Invocation> shellInvocation(
      const std::string& command, const std::string& dulkPath, const Environment& environment,
      const std::function<bool(const std::string&)>& isExecutable);

  /// `fd` is the host's connection. It stays the caller's, and becomes non-blocking for as long as
  /// a command runs. `buffered` holds what the host has sent behind the request.
  ExecSession(int fd, LineSplitBuffer buffered, std::string dulkPath = std::string(defaultDulkPath),
              int pipeGraceMillis = defaultPipeGraceMillis);

  /// Runs the whole session.
  void run(const Json& request);

 private:
  void fail(std::string_view message) const;

  int fd_;
  LineSplitBuffer lines_;
  std::string dulkPath_;
  int graceMillis_;
};

}  // namespace tervain
