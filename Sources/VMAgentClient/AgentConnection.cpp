#include "VMAgentClient/AgentConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "VMAgentCore/AgentError.h"
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
  const auto line = waitForLine(deadline);
  if (!line) {
    throw AgentError::posix("waiting for the agent's reply", ended() ? ECONNRESET : ETIMEDOUT);
  }
  auto reply = parseObject(*line);
  if (!reply) {
    throw AgentError::posix("reading the agent's reply", EBADMSG);
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

void AgentConnection::send(const Json& object) {
  const auto line = serialize(object);
  if (!line) {
    throw AgentError::posix("encoding the request", EILSEQ);
  }
  sendLine(*line);
}

void AgentConnection::sendLine(std::string_view line) {
  unsent_.append(line).push_back('\n');
  flush();
}

void AgentConnection::sendBytes(std::string_view bytes) {
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
  while (writable_ && sending()) {
    const ssize_t n = write(fd_.get(), unsent_.data(), unsent_.size());
    if (n >= 0) {
      unsent_.erase(0, static_cast<std::size_t>(n));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return;
    } else if (errno != EINTR) {
      writable_ = false;
    }
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
