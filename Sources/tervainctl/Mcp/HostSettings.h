#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tervain::mcp {

/// What an AI host wants in its settings to start the server, and where they are.
struct HostSettings {
  std::string text;
  std::string place;  // a sentence without its full stop
};

/// The settings of a host for this command line; nothing when the host is not known.
std::optional<HostSettings> settingsFor(std::string_view host,
                                        const std::vector<std::string>& command);

}  // namespace tervain::mcp
