#pragma once

#include <string_view>

#include "VMAgentCore/Json.h"
#include "tervainctl/CommandTable/ToolTable.h"

/// What hosts are told of the tools, made from the table, and the check of what they call them
/// with.
namespace tervain::mcp {

/// Every tool with its schema and annotations, always in the same order.
Json toolList();

/// The command that a tool is; null when there is no such tool.
const ctl::Command* toolCommand(std::string_view name);

/// Checks a call's arguments against what the schema says. Throws BadArgument.
void checkArguments(const ctl::Command& command, const Json& arguments);

}  // namespace tervain::mcp
