#pragma once

#include <string>
#include <string_view>

#include "VMAgentClient/AgentConnection.h"

/// The guest's clipboard, by the commands that its system has for it. A text is UTF-8 whatever the
/// agent's locale. Both use the connection up, and throw Refusal with the command's own words when
/// it fails, ProtocolError, and AgentError.
namespace tervain {

std::string clipboardText(AgentConnection connection);

/// The text stays there until something else is copied.
void setClipboard(AgentConnection connection, std::string_view text);

}  // namespace tervain
