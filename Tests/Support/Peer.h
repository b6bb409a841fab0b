#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Support/Deadline.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/LineSplitBuffer.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain::test {

/// The host's end of a connection, byte by byte as a test wants it. Reads give up when patience
/// runs out.
class Peer {
 public:
  /// From now on the process ignores SIGPIPE: that the other side has left is a failed `send`.
  explicit Peer(UniqueFD socket) : fd_(std::move(socket)) { std::signal(SIGPIPE, SIG_IGN); }

  /// A connection to a listening Unix socket, retried while its queue is full.
  static Peer connect(const std::string& path);

  /// A connection to a vsock port of this same machine, retried while its queue is full.
  static Peer connect(std::uint32_t vsockPort);

  /// Sends bytes as they are. False when the agent has gone.
  bool send(std::string_view bytes) const;

  /// The next line. Nothing at the end of the connection, or when none comes.
  std::optional<std::string> readLine();

  /// The next line as JSON; null when there is none.
  Json readJson();

  /// Sends a request and reads its reply.
  Json ask(std::string_view request);

  /// Whether the agent closes the connection, with nothing unread before that.
  bool closed();

  void close() { fd_.reset(); }
  [[nodiscard]] int fd() const { return fd_.get(); }

 private:
  UniqueFD fd_;
  LineSplitBuffer lines_;
  bool ended_ = false;
};

/// A connection to an agent that follows a script, on a thread of its own, and then hangs up. The
/// destructor waits for that, so what is connected to it has to be gone before.
class ScriptedPeer {
 public:
  explicit ScriptedPeer(std::function<void(Peer&)> script);

  UniqueFD host;

 private:
  std::future<void> done_;
};

/// A listening Unix socket.
UniqueFD listenAt(const std::string& path);

/// What came out of an exec.
struct ExecResult {
  std::string out;
  std::string err;
  std::optional<int> code;  ///< from the exit frame
  std::string error;        ///< from the error frame
};

/// Reads frames to the end of the connection.
ExecResult readExec(Peer& peer);

/// The line of a standard input frame.
std::string stdinFrame(std::string_view bytes);

}  // namespace tervain::test
