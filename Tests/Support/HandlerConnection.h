#pragma once

#include <sys/socket.h>

#include <csignal>
#include <thread>

#include "Support/Peer.h"
#include "TervainVMAgent/ConnectionHandler.h"

namespace tervain::test {

/// A connection handler at work on a thread of its own, and the host's end of its connection.
class HandlerConnection {
 public:
  HandlerConnection() : HandlerConnection(makePair()) {}
  ~HandlerConnection() {
    host.close();
    thread_.join();
  }
  HandlerConnection(const HandlerConnection&) = delete;
  HandlerConnection& operator=(const HandlerConnection&) = delete;

  Peer host;

 private:
  struct Pair {
    UniqueFD host;
    UniqueFD agent;
  };
  static Pair makePair() {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    return {UniqueFD(ends[0]), UniqueFD(ends[1])};
  }

  explicit HandlerConnection(Pair pair)
      : host(std::move(pair.host)), thread_([agent = std::move(pair.agent)]() mutable {
          ConnectionHandler(std::move(agent)).run();
        }) {}

  std::thread thread_;
};

}  // namespace tervain::test
