#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "VMAgentClient/AgentConnection.h"

namespace tervain {

/// A shell command that runs in the guest. It uses up its connection: destroying it while the
/// command runs makes the agent kill the command with all its descendants.
class RemoteCommand {
 public:
  /// How much input one frame carries: what one read of a pipe or file gives.
  static constexpr std::size_t inputChunk = 65'536;

  /// The frame that carries input, its line feed left out.
  static std::string inputFrame(std::string_view bytes);

  /// Takes output as it comes. It may take its time: the command then waits, as it would for any
  /// slow reader of a pipe. What it throws ends the run. It waits with `waitForRoom`, if at all.
  using Output = std::function<void(std::string_view bytes)>;

  /// Looks through input before it is sent, and returns what is to be sent of it. What it throws
  /// ends the run.
  using Filter = std::function<std::string(std::string_view bytes)>;

  /// What a run is connected to. The descriptors stay the caller's.
  struct Streams {
    int input = -1;    // read up to its end, which is the end of the command's input; -1: no input
    int signals = -1;  // every byte read from it is the number of a signal for the command
    Output onOutput;
    Output onError;
    Filter inputFilter{};  // none: all input is sent
    /// How long a signal may have to wait for the agent to read on. It reads on at once unless its
    /// command leaves megabytes of input unread. Then nothing can be sent any more, and the only
    /// way to end the command is to leave it.
    std::chrono::milliseconds signalPatience{5000};
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

  /// Asks the agent to start a command. Throws std::invalid_argument when its text is not UTF-8.
  RemoteCommand(AgentConnection connection, std::string_view command);

  /// Pumps until the command has ended, one way or another. It is called once. Throws AgentError,
  /// and ProtocolError when a signal can't be sent in time.
  Result run(Streams streams);

  /// Waits until a descriptor can be written to, and sends meanwhile what is to be sent. For an
  /// Output. Throws as `run` does.
  void waitForRoom(int fd);

 private:
  void wait();
  void waitForEvents(std::span<pollfd> entries);
  void forwardSignals();
  void forwardInput();
  void endInput();
  std::optional<Result> takeFrames();
  [[nodiscard]] bool pass(std::string_view tag, std::string_view bytes) const;
  std::optional<Result> take(const Json& frame);

  AgentConnection connection_;
  Streams streams_;
  std::unique_ptr<char[]> buffer_;
  std::string frame_;
  Deadline signalDeadline_ = Deadline::max();  // of a signal that has not been sent yet
};

}  // namespace tervain
