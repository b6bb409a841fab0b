#pragma once

#include <sys/socket.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VMAgentCore/Json.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain::fuzz {

/// What a host does when it has sent all it has to send: it ends its stream, at once or when it has
/// heard something, or listens on. One that listens late has read nothing before.
enum class Then { endStream, endStreamWhenHeard, listen, listenLate };

/// What came of a connection.
struct Conversation {
  std::vector<Json> lines;           ///< what the agent has sent; all of them objects
  std::optional<std::string> fatal;  ///< the fatal error that has ended the agent, if one has
};

/// Has `agent` serve its end of a connection, on a thread of its own, to a host that sends pieces
/// while it reads until the agent's end. With packets each read gets what one write wrote, however
/// fast the writer is: an input then decides by itself what the agent reads when.
Conversation converse(const std::vector<std::string_view>& pieces,
                      const std::function<void(UniqueFD)>& agent, Then then = Then::endStream,
                      int socketType = SOCK_SEQPACKET);

}  // namespace tervain::fuzz
