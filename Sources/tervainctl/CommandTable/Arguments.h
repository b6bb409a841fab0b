#pragma once

#include <span>
#include <stdexcept>
#include <string>

#include "VMAgentCore/Json.h"
#include "tervainctl/CommandTable/CommandTable.h"

/// The arguments of a call, whichever front it comes from: an object with a member for each option
/// that was given, by its key and of its kind. Those of all commands stand beside the command's.
namespace tervain::ctl {

/// A value that an option does not take. Its text says which option, and why.
class BadArgument : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How the user knows an option: its longest spelling, or the placeholder of an argument.
std::string_view nameOf(const Option& option);

/// The value of an option that was given with these words: `valueCount` of them, as many for each
/// time if it may be given several times, or any number for `Kind::words`. Throws BadArgument.
Json valueOf(const Option& option, std::span<const std::string> words);

/// Checks a value's type, a number's range and a choice. Throws BadArgument.
void check(const Option& option, const Json& value);

/// Whether a command can be told in this way what it acts on.
bool hasAim(const Command& command, Aim aim);

/// Whether it is told so by these arguments.
bool isAimed(const Command& command, const Json& arguments, Aim aim);

/// Checks that nothing is missing, and that a command that can be told in several ways what it acts
/// on is told it in one. Throws BadArgument.
void checkComplete(const Command& command, const Json& arguments);

/// The request that a command with an `op` makes of its arguments.
Json requestOf(const Command& command, const Json& arguments);

}  // namespace tervain::ctl
