#include "VMAgentClient/AgentConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/System.h"

namespace tervain {

AgentConnection::AgentConnection(UniqueFD socket)
    : fd_(std::move(socket)), buffer_(new char[readSize]) {
  fcntl(fd_.get(), F_SETFL, fcntl(fd_.get(), F_GETFL) | O_NONBLOCK);
  System::suppressSigpipe(fd_.get());
}

Json AgentConnection::request(const Json& object) {
  return request(object, Deadline::max());
}

Json AgentConnection::request(const Json& object, Deadline deadline) {
  send(object);
  std::optional<std::string_view> line;
  // Replies to requests that were given up come first.
  for (++unanswered_; unanswered_ > 0; --unanswered_) {
    line = waitForLine(deadline);
    if (!line) {
      throw ProtocolError(tooLong_  ? "the agent's reply is longer than any it can have"
                          : ended() ? "the agent closed the connection without a reply"
                                    : "the agent has not replied in time");
    }
  }
  auto reply = parseObject(*line);
  if (!reply) {
    throw ProtocolError("the agent's reply is not a JSON object");
  }
  return std::move(*reply);
}

std::optional<std::string_view> AgentConnection::waitForLine(Deadline deadline) {
  auto line = nextLine();
  while (!line && !ended()) {
    pollfd entry = pollEntry();
    if (!waitForEvents({&entry, 1}, deadline)) {
      return std::nullopt;
    }
    advance(entry.revents);
    line = nextLine();
  }
  return line;
}

std::optional<std::string_view> AgentConnection::nextLine() {
  const auto line = lines_.next();
  if (!line && lines_.pendingBytes() > maxLineBytes) {
    lines_ = {};
    ended_ = true;
    tooLong_ = true;
  }
  return line;
}

void AgentConnection::send(const Json& object) {
  const auto line = serialize(object);
  if (!line) {
    throw std::invalid_argument("a text of the request is not UTF-8");
  }
  sendLine(*line);
}

void AgentConnection::sendLine(std::string_view line) {
  unsent_.append(line).push_back('\n');
  flush();
}

void AgentConnection::sendBytes(std::string_view bytes) {
  // Most of what is sent goes through at once, without a copy.
  if (!sending() && writable_) {
    writable_ = writeSome(fd_.get(), bytes);
  }
  unsent_.append(bytes);
  flush();
}

void AgentConnection::endSending() {
  ending_ = true;
  flush();
}

pollfd AgentConnection::pollEntry() const {
  const short events = sending() ? POLLIN | POLLOUT : POLLIN;
  return {ended_ ? -1 : fd_.get(), events, 0};
}

void AgentConnection::advance(short events) {
  if ((events & POLLOUT) != 0) {
    flush();
  }
  if ((events & ~POLLOUT) != 0) {
    receive();
  }
}

void AgentConnection::flush() {
  if (writable_ && sending()) {
    std::string_view rest = unsent_;
    writable_ = writeSome(fd_.get(), rest);
    unsent_.erase(0, unsent_.size() - rest.size());
  }
  if (!writable_) {
    unsent_.clear();
  }
  if (ending_ && writable_) {
    shutdown(fd_.get(), SHUT_WR);
    writable_ = false;
  }
}

void AgentConnection::receive() {
  const ssize_t n = readSome(fd_.get(), {buffer_.get(), readSize});
  if (n > 0) {
    lines_.append({buffer_.get(), static_cast<std::size_t>(n)});
  } else if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
    ended_ = true;
  }
}

}  // namespace tervain
