#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VMAgentClient/AgentConnection.h"

namespace tervain {

/// A shell command that runs in the guest. It uses up its connection: destroying it while the
/// command runs makes the agent kill the command with all its descendants.
class RemoteCommand {
 public:
  /// How much input one frame carries. The agent gives each frame up to a second to pass into the
  /// command's pipe and drops the rest of it; a frame of half a usual pipe goes through quickly.
  static constexpr std::size_t inputChunk = 32'768;

  /// The frame that carries input, its line feed left out.
  static std::string inputFrame(std::string_view bytes);

  /// Takes output as it comes. It may take its time: the command then waits, as it would for any
  /// slow reader of a pipe. What it throws ends the run.
  using Output = std::function<void(std::string_view bytes)>;

  /// What a run is connected to. The descriptors stay the caller's.
  struct Streams {
    int input = -1;    // read up to its end, which is the end of the command's input; -1: no input
    int signals = -1;  // every byte read from it is the number of a signal for the command
    Output onOutput;
    Output onError;
  };

  /// The command ended: its exit status, 128 + the signal that ended it, or -1 when that is
  /// unknown.
  struct Exited {
    int code;
  };
  /// The agent did not run it, and says why.
  struct Refused {
    std::string message;
  };
  /// The connection ended before the command did.
  struct ConnectionLost {};
  using Result = std::variant<Exited, Refused, ConnectionLost>;

  /// Asks the agent to start a command. Throws AgentError when its text is not UTF-8.
  RemoteCommand(AgentConnection connection, std::string_view command);

  /// Pumps until the command has ended, one way or another. It is called once. Throws AgentError.
  Result run(Streams streams);

  /// Sends on the signals that have arrived. For an Output that has to wait and watches
  /// `Streams::signals` meanwhile; it waits for nothing itself unless there are none.
  void forwardSignals();

 private:
  void wait();
  void forwardInput();
  void endInput();
  std::optional<Result> takeFrames();
  [[nodiscard]] bool pass(std::string_view tag, std::string_view bytes) const;
  std::optional<Result> take(const Json& frame);

  AgentConnection connection_;
  Streams streams_;
  std::unique_ptr<char[]> buffer_;
};

}  // namespace tervain
