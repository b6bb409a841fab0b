#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "VMAgentClient/AgentConnection.h"

namespace tervain::mcp {

/// Lets one thread end what another one waits for: the connections that it watches are shut down,
/// so that waits for their agent end. Calls have one each, of their own.
class Interruption {
 public:
  /// The connection stays the caller's. Throws AgentError.
  void watch(const AgentConnection& connection);

  /// Ends what is waited for now, and whatever will be.
  void interrupt();

  /// Ends what is waited for now; the call goes on, and has a result.
  void endWaits();

  [[nodiscard]] bool interrupted() const;

 private:
  void shutDown();

  mutable std::mutex mutex_;
  bool interrupted_ = false;
  std::vector<UniqueFD> watched_;  // descriptors of our own: those of a connection may be gone
};

/// Does something at a moment, on a thread of its own, unless it is destroyed before.
class Alarm {
 public:
  Alarm(Deadline moment, std::function<void()> ring);
  ~Alarm();
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  [[nodiscard]] bool rang() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  bool rang_ = false;
  std::thread thread_;
};

}  // namespace tervain::mcp
