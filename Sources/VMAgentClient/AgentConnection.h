#pragma once

#include <poll.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VMAgentCore/Deadline.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/LineSplitBuffer.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// A host's connection to an agent: lines in both directions, and on top of them the exchange of a
/// request for its reply. Whoever owns one has the process ignore SIGPIPE.
class AgentConnection {
 public:
  /// The longest line that is taken from an agent (256 MiB): twice what the largest reply, a full
  /// drain of shell events, can have. A connection with a longer one counts as ended.
  static constexpr std::size_t maxLineBytes = 268'435'456;

  /// Takes over a connected stream socket and makes it non-blocking.
  explicit AgentConnection(UniqueFD socket);

  /// Sends a request and waits for its one reply, of whatever size. Throws ProtocolError when no
  /// reply comes that is an object, std::invalid_argument when the request has strings that are not
  /// UTF-8, and AgentError when the socket can't be waited for.
  Json request(const Json& object);

  /// The same, but throws ProtocolError as well when the reply has not come by the deadline. The
  /// connection can be used further: if it comes after all, it is dropped.
  Json request(const Json& object, Deadline deadline);

  /// Sends what is queued, and waits for the next line. Nothing when the connection ends, or the
  /// deadline passes, before there is one. The view lives until the connection is next used. Throws
  /// AgentError.
  std::optional<std::string_view> waitForLine(Deadline deadline);

  // What follows never waits. A loop that has more to watch than this connection polls
  // `pollEntry()` along with the rest, hands the events to `advance()` and takes the lines.

  /// Queues an object, or a line without its line feed, and sends what can be sent at once. An
  /// object with strings that are not UTF-8 throws std::invalid_argument.
  void send(const Json& object);
  void sendLine(std::string_view line);

  /// Queues bytes as they are: a part of a line, or several lines that are to arrive together.
  void sendBytes(std::string_view bytes);

  /// Tells the agent that no more will be sent, once all that is queued has been. What comes from
  /// the agent can still be read.
  void endSending();

  /// Whether some of what was queued is still waiting for the agent to read on.
  [[nodiscard]] bool sending() const { return !unsent_.empty(); }

  /// Whether the agent still takes what is sent. What it has sent itself before it closed the
  /// connection can be read nonetheless.
  [[nodiscard]] bool writable() const { return writable_; }

  /// Whether everything has been received that ever will be. Lines may still be there to be taken.
  [[nodiscard]] bool ended() const { return ended_; }

  /// The next complete line from the agent. The view lives until the connection is next
  /// used.
  std::optional<std::string_view> nextLine();

  /// What to poll for. After the end it is an entry that poll ignores.
  [[nodiscard]] pollfd pollEntry() const;

  /// Sends and receives what the events of a poll promise to go through without waiting.
  void advance(short events);

 private:
  void flush();
  void receive();

  UniqueFD fd_;
  std::string unsent_;
  LineSplitBuffer lines_;
  std::unique_ptr<char[]> buffer_;
  bool writable_ = true;
  bool ending_ = false;  // our side is to be closed when nothing is left to send
  bool ended_ = false;
  bool tooLong_ = false;  // it was a line without end that ended it
  int unanswered_ = 0;    // requests whose replies have not come yet
};

}  // namespace tervain
