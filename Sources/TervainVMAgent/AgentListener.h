#pragma once

#include <cstdint>

#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// Accepts host connections and gives each a handler on a thread of its own.
class AgentListener {
 public:
  /// How many connections may wait to be accepted.
  static constexpr int backlog = 4;

  /// Listens on a vsock port. Throws AgentError.
  explicit AgentListener(std::uint32_t port);

  /// Serves a socket that listens already.
  explicit AgentListener(UniqueFD socket);

  /// The accept loop.
  [[noreturn]] void run();

 private:
  UniqueFD fd_;
};

}  // namespace tervain
