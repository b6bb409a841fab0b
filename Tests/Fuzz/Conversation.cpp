#include "Fuzz/Conversation.h"

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "Fuzz/Fuzz.h"
#include "Support/Sockets.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/LineSplitBuffer.h"

namespace tervain::fuzz {
namespace {

constexpr std::size_t maxPacket = 1 << 20;

LineSplitBuffer talk(int host, const std::vector<std::string_view>& pieces, Then then) {
  static std::vector<char> buffer(maxPacket);
  LineSplitBuffer heard;
  bool leaving = then == Then::endStream;
  for (auto piece = pieces.begin();;) {
    if (piece == pieces.end() && leaving) {
      shutdown(host, SHUT_WR);
    }
    const auto speaking = then == Then::listenLate ? POLLOUT : POLLIN | POLLOUT;
    const auto wanted = piece == pieces.end() ? POLLIN : speaking;
    pollfd ready{host, static_cast<short>(wanted), 0};
    waitForEvents({&ready, 1});
    if ((ready.revents & ~POLLOUT) != 0) {
      const ssize_t n = readSome(host, buffer);
      if (n < 0 && errno == ECONNRESET) {
        continue;  // told once, before what the agent has sent, when it has left something unread
      }
      if (n <= 0) {
        return heard;
      }
      heard.append({buffer.data(), static_cast<std::size_t>(n)});
      leaving = leaving || then == Then::endStreamWhenHeard;
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
  auto [host, end] = test::socketPair(socketType);
  require(host && end, "no socket pair");
  Conversation result;
  std::thread thread([&result, &agent, &end = end] {
    try {
      agent(std::move(end));
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
