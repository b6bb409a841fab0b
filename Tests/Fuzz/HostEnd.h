#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "VMAgentCore/UniqueFD.h"

namespace tervain::fuzz {

/// The two ends of a connection on which each read gets what one write wrote, however fast the
/// writer is: an input then decides by itself what the agent reads when.
struct HostConnection {
  HostConnection();
  UniqueFD host;
  UniqueFD agent;
};

/// What a host does when it has sent all it has to send.
enum class Then { endStream, listen };

/// Sends all the pieces while reading until the agent's end. Returns what it has read.
std::string talk(int host, const std::vector<std::string_view>& pieces,
                 Then then = Then::endStream);

}  // namespace tervain::fuzz
