#include "Fuzz/Conversation.h"

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "Fuzz/Fuzz.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/LineSplitBuffer.h"

namespace tervain::fuzz {
namespace {

constexpr std::size_t maxPacket = 1 << 20;

LineSplitBuffer talk(int host, const std::vector<std::string_view>& pieces, Then then) {
  static std::vector<char> buffer(maxPacket);
  LineSplitBuffer heard;
  for (auto piece = pieces.begin();;) {
    if (piece == pieces.end() && then == Then::endStream) {
      shutdown(host, SHUT_WR);
    }
    const auto wanted = piece == pieces.end() ? POLLIN : POLLIN | POLLOUT;
    pollfd ready{host, static_cast<short>(wanted), 0};
    poll(&ready, 1, -1);
    if ((ready.revents & ~POLLOUT) != 0) {
      const ssize_t n = readSome(host, buffer);
      if (n < 0 && errno == ECONNRESET) {
        continue;  // told once, before what the agent has sent, when it has left something unread
      }
      if (n <= 0) {
        return heard;
      }
      heard.append({buffer.data(), static_cast<std::size_t>(n)});
    } else if (ready.revents != 0 &&
               send(host, piece->data(), piece->size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
      ++piece;
    }
  }
}

}  // namespace

Conversation converse(const std::vector<std::string_view>& pieces,
                      const std::function<void(UniqueFD)>& agent, Then then, int socketType) {
  std::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  require(socketpair(AF_UNIX, socketType | SOCK_CLOEXEC, 0, ends) == 0, "no socket pair");
  const UniqueFD host(ends[0]);
  Conversation result;
  std::thread thread([&result, &agent, end = ends[1]] {
    try {
      agent(UniqueFD(end));
    } catch (const FatalError& error) {
      result.fatal = error.why;
    }
  });
  LineSplitBuffer heard = talk(host.get(), pieces, then);
  thread.join();
  while (const auto line = heard.next()) {
    const auto object = parseObject(*line);
    require(object.has_value(), "a line that is no JSON object");
    result.lines.push_back(*object);
  }
  require(heard.pendingBytes() == 0, "half a line");
  return result;
}

}  // namespace tervain::fuzz
