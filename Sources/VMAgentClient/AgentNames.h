#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentCore/Environment.h"

namespace tervain {

/// An agent and what its user calls it.
struct NamedAgent {
  std::string name;
  AgentAddress address;
  bool operator==(const NamedAgent&) const = default;
};

/// A text that should name an agent does not, or the file of names can't be understood. The text
/// says what is wrong, and where.
class NoSuchAgent : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The file that has the names: `TERVAIN_AGENTS`, else `tervain/agents` in `XDG_CONFIG_HOME` or in
/// `~/.config`. Nothing where there is no home either.
std::optional<std::string> agentsFile(const Environment& environment);

/// The names that a text has, a line each: NAME ADDRESS. A # at the start of a word begins a
/// comment. A name holds no colon, percent sign, slash or @, and does not begin with a dash, so it
/// is never taken for an address or an option. Throws NoSuchAgent, which names `file` and the line.
std::vector<NamedAgent> parseAgents(std::string_view text, const std::string& file);

/// The names of the user's file; none when it doesn't exist. Throws NoSuchAgent and AgentError.
std::vector<NamedAgent> readAgents(const Environment& environment);

/// The agent that a text names, by its address or by a name. Throws as `readAgents` does.
AgentAddress resolveAgent(std::string_view text, const Environment& environment);

}  // namespace tervain
