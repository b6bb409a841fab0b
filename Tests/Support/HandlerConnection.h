#pragma once

#include <thread>

#include "Support/Peer.h"
#include "Support/Sockets.h"
#include "TervainVMAgent/ConnectionHandler.h"

namespace tervain::test {

/// The reply of an operation that failed.
inline Json failure(const std::string& error) {
  return {{"ok", false}, {"error", error}};
}

/// How many nodes there are in the tree of a dump.
inline int countNodes(const Json& node) {
  int count = 1;
  for (const Json& child : node.value("children", Json::array())) {
    count += countNodes(child);
  }
  return count;
}

/// A connection handler at work on a thread of its own, and the host's end of its connection.
class HandlerConnection {
 public:
  explicit HandlerConnection(const OperationSettings& settings = {})
      : HandlerConnection(socketPair(), settings) {}
  ~HandlerConnection() {
    host.close();
    thread_.join();
  }
  HandlerConnection(const HandlerConnection&) = delete;
  HandlerConnection& operator=(const HandlerConnection&) = delete;

  Peer host;

 private:
  HandlerConnection(SocketPair pair, const OperationSettings& settings)
      : host(std::move(pair.host)), thread_([agent = std::move(pair.agent), settings]() mutable {
          ConnectionHandler(std::move(agent), settings).run();
        }) {}

  std::thread thread_;
};

}  // namespace tervain::test
