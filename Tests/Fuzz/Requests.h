#pragma once

#include <sys/socket.h>

#include <string_view>
#include <vector>

namespace tervain::fuzz {

/// A connection from its first byte to its last: whatever comes, there must be one JSON object with
/// a boolean "ok" for each line that is not empty, up to an exec or a fatal error.
void serveRequests(const std::vector<std::string_view>& pieces, int socketType = SOCK_SEQPACKET);

}  // namespace tervain::fuzz
