#include "Fuzz/HostEnd.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <memory>

#include "Fuzz/Fuzz.h"
#include "VMAgentCore/IO.h"

namespace tervain::fuzz {
namespace {

constexpr std::size_t maxPacket = 1 << 20;

}  // namespace

HostConnection::HostConnection() {
  std::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "no socket pair");
  host.reset(ends[0]);
  agent.reset(ends[1]);
}

std::string talk(int host, const std::vector<std::string_view>& pieces, Then then) {
  static const std::unique_ptr<char[]> buffer(new char[maxPacket]);
  std::string heard;
  auto piece = pieces.begin();
  for (;;) {
    if (piece == pieces.end() && then == Then::endStream) {
      shutdown(host, SHUT_WR);
    }
    const auto wanted = piece == pieces.end() ? POLLIN : POLLIN | POLLOUT;
    pollfd ready{host, static_cast<short>(wanted), 0};
    poll(&ready, 1, -1);
    if ((ready.revents & ~POLLOUT) != 0) {
      const ssize_t n = readSome(host, {buffer.get(), maxPacket});
      if (n < 0 && errno == ECONNRESET) {
        continue;  // told once, before what the agent has sent, when it has left something unread
      }
      if (n <= 0) {
        return heard;
      }
      heard.append(buffer.get(), static_cast<std::size_t>(n));
    } else if (ready.revents != 0 &&
               send(host, piece->data(), piece->size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
      ++piece;
    }
  }
}

}  // namespace tervain::fuzz
