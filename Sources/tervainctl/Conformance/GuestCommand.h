#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VMAgentClient/AgentConnection.h"
#include "tervainctl/Conformance/Guest.h"

namespace tervain::ctl::conform {

/// A command in the guest, and what has come of it so far.
class GuestCommand {
 public:
  /// Starts a command. What stands in `behind` is sent along in the same packet.
  GuestCommand(const Guest& guest, std::string_view command, std::string_view behind = {});

  /// A request as it is, of which an exec may or may not come.
  struct Request {
    std::string_view line;
  };
  GuestCommand(const Guest& guest, Request request, std::string_view behind = {});

  void send(const Json& frame) { connection_.send(frame); }
  void sendLine(std::string_view line) { connection_.sendLine(line); }
  void sendBytes(std::string_view bytes) { connection_.sendBytes(bytes); }
  void endSending() { connection_.endSending(); }

  /// Whether standard output comes to have so many bytes, in time.
  bool awaitOutput(std::size_t size);

  /// Whether standard output comes to hold a whole line, in time.
  bool awaitLine();

  /// Reads on. Whether the agent closes the connection, in time.
  bool awaitEnd();

  struct Came {
    std::string out;
    std::string err;
    std::optional<std::int64_t> code;    // of the exit frame
    std::optional<std::string> refusal;  // of the error frame
    std::size_t chunks = 0;              // frames of output
    std::size_t largestChunk = 0;        // bytes
    std::string stray;                   // the first line that is no documented frame
  };
  [[nodiscard]] const Came& came() const { return came_; }

 private:
  /// Whether the condition comes to hold before the connection ends or patience does.
  template <class Condition>
  bool readUntil(Condition condition);
  void take(std::string_view line);
  bool takeFrame(const Json& frame);
  bool takeOutput(const Json& frame, std::string& stream);

  AgentConnection connection_;
  Came came_;
};

/// Runs a command to its end. Throws ProtocolError when that does not come in time.
GuestCommand::Came runToEnd(const Guest& guest, std::string_view command);

/// The process number that a command printed alone in its first line; -1 when it did not.
std::int64_t pidIn(const GuestCommand::Came& came);

/// Whether a process of the guest is there and has not ended.
bool isRunning(const Guest& guest, std::int64_t pid);

/// A command that the guest runs in the end, whatever has become of a check by then.
class Cleanup {
 public:
  Cleanup(const Guest& guest, std::string command) : guest_(guest), command_(std::move(command)) {}
  ~Cleanup();
  Cleanup(const Cleanup&) = delete;
  Cleanup& operator=(const Cleanup&) = delete;

 private:
  const Guest& guest_;
  std::string command_;
};

}  // namespace tervain::ctl::conform
