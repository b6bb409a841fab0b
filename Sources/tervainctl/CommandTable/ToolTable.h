#pragma once

#include <string>
#include <vector>

#include "tervainctl/CommandTable/CommandTable.h"

/// The commands that AI hosts have as tools, and what is different about them there.
namespace tervain::ctl {

/// What a tool does to the guest, for hosts that ask their users before.
struct Hints {
  bool readOnly = false;
  bool destructive = false;  // may undo or overwrite what somebody has made
  bool idempotent = false;   // done twice, it is as done once
  bool openWorld = false;    // may reach beyond the guest
};

struct Tool {
  std::string_view name;
  std::string_view command;
  std::string_view help{};     // instead of the command's
  std::string_view details{};  // more sentences, complete, instead of the command's
  Hints hints{};
  std::span<const std::string_view> without{};  // options of the command, by their keys
  std::span<const Option> options{};            // its own, instead of the command's of that key
};

std::span<const Tool> tools();

/// The tool of this name, or null.
const Tool* findTool(std::string_view name);

/// The command that a tool is, as hosts see it: its name and texts are the tool's, and its options
/// are told by their keys. What the span of its options shows is the second.
struct ToolCommand {
  Command command;
  std::vector<Option> options;
};
ToolCommand commandOf(const Tool& tool);

}  // namespace tervain::ctl
