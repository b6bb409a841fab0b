#include "VMAgentClient/RemoteCommand.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/ExecFrames.h"
#include "VMAgentCore/IO.h"

namespace tervain {

namespace wire = AgentWire::Exec;

std::string RemoteCommand::inputFrame(std::string_view bytes) {
  std::string frame;
  ExecFrames::appendBytes(frame, wire::stdin_, bytes);
  frame.pop_back();
  return frame;
}

RemoteCommand::RemoteCommand(AgentConnection connection, std::string_view command)
    : connection_(std::move(connection)), buffer_(new char[inputChunk]) {
  connection_.send(Json{{"op", wire::op}, {wire::commandKey, command}});
}

RemoteCommand::Result RemoteCommand::run(Streams streams) {
  streams_ = std::move(streams);
  if (streams_.input < 0) {
    endInput();
  }
  for (;;) {
    if (auto result = takeFrames()) {
      return *std::move(result);
    }
    if (connection_.ended()) {
      return ConnectionLost{};
    }
    wait();
  }
}

void RemoteCommand::wait() {
  // Input is read only when all that was read before is on its way: what can't be sent stays
  // bounded by one frame, a signal never queues up behind more than that, and output is taken in
  // all the while.
  const bool wantsInput = connection_.writable() && !connection_.sending();
  std::array<pollfd, 3> entries{{connection_.pollEntry(),
                                 {streams_.signals, POLLIN, 0},
                                 {wantsInput ? streams_.input : -1, POLLIN, 0}}};
  waitForEvents(entries);
  connection_.advance(entries[0].revents);
  if (entries[1].revents != 0) {
    forwardSignals();
  }
  if (entries[2].revents != 0) {
    forwardInput();
  }
}

void RemoteCommand::waitForRoom(int fd) {
  for (;;) {
    // Nothing is received: the line whose output is being passed on must stay where it is.
    pollfd sending = connection_.pollEntry();
    sending.events &= POLLOUT;
    sending.fd = connection_.sending() ? sending.fd : -1;
    std::array<pollfd, 3> entries{{sending, {streams_.signals, POLLIN, 0}, {fd, POLLOUT, 0}}};
    waitForEvents(entries);
    if (entries[0].revents != 0) {
      connection_.advance(POLLOUT);
    }
    if (entries[1].revents != 0) {
      forwardSignals();
    }
    if (entries[2].revents != 0) {
      return;
    }
  }
}

void RemoteCommand::waitForEvents(std::span<pollfd> entries) {
  if (!connection_.sending()) {
    signalDeadline_ = Deadline::max();
  }
  if (Deadline::clock::now() >= signalDeadline_ ||
      !tervain::waitForEvents(entries, signalDeadline_)) {
    throw ProtocolError("a signal could not be sent: neither the command nor the agent reads");
  }
}

void RemoteCommand::forwardSignals() {
  std::array<char, 16> numbers{};
  const ssize_t n = readSome(streams_.signals, numbers);
  if (n <= 0) {
    streams_.signals = -1;
    return;
  }
  std::for_each(numbers.begin(), numbers.begin() + n, [this](char number) {
    connection_.send(
        Json{{wire::tagKey, wire::signal}, {wire::signalKey, static_cast<int>(number)}});
  });
  signalDeadline_ = std::min(signalDeadline_, Deadline::clock::now() + streams_.signalPatience);
}

void RemoteCommand::forwardInput() {
  const ssize_t n = readSome(streams_.input, {buffer_.get(), inputChunk});
  if (n > 0) {
    const std::string_view bytes(buffer_.get(), static_cast<std::size_t>(n));
    frame_.clear();
    if (streams_.inputFilter) {
      ExecFrames::appendBytes(frame_, wire::stdin_, streams_.inputFilter(bytes));
    } else {
      ExecFrames::appendBytes(frame_, wire::stdin_, bytes);
    }
    connection_.sendBytes(frame_);
  } else if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
    endInput();
  }
}

/// With a frame: closing our side of the socket would tell the agent that the host has gone.
void RemoteCommand::endInput() {
  streams_.input = -1;
  connection_.send(Json{{wire::tagKey, wire::stdinEOF}});
}

std::optional<RemoteCommand::Result> RemoteCommand::takeFrames() {
  while (const auto line = connection_.nextLine()) {
    const auto output = ExecFrames::payload(*line);
    if (output && pass(output->tag, output->bytes)) {
      continue;
    }
    const std::optional<Json> frame = parseObject(*line);
    if (auto result = frame ? take(*frame) : std::nullopt) {
      return result;
    }
  }
  return std::nullopt;
}

/// False when the tag is not that of output.
bool RemoteCommand::pass(std::string_view tag, std::string_view bytes) const {
  if (tag != wire::stdout_ && tag != wire::stderr_) {
    return false;
  }
  if (!bytes.empty()) {
    (tag == wire::stdout_ ? streams_.onOutput : streams_.onError)(bytes);
  }
  return true;
}

/// Frames of kinds that are not known are left for later versions of the protocol to mean.
std::optional<RemoteCommand::Result> RemoteCommand::take(const Json& frame) {
  const std::string* tag = stringMember(frame, wire::tagKey);
  if (!tag) {
    // An agent that doesn't know the operation answers it like any other request.
    const std::string* error = stringMember(frame, "error");
    return error ? std::optional<Result>(Refused{*error}) : std::nullopt;
  }
  const std::string* text = stringMember(frame, wire::dataKey);
  if (pass(*tag, (text ? decodeBase64(*text) : std::nullopt).value_or(""))) {
    return std::nullopt;
  }
  if (*tag == wire::exit) {
    return Exited{static_cast<int>(integerMember(frame, wire::codeKey).value_or(-1))};
  }
  if (*tag == wire::spawnError) {
    const std::string* message = stringMember(frame, wire::messageKey);
    return Refused{message ? *message : "the agent gives no reason"};
  }
  return std::nullopt;
}

}  // namespace tervain
