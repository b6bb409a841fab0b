#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tervainctl/CommandTable/CommandTable.h"

/// What is made from the table of commands: each of these texts goes into a template that has the
/// rest. In the templates "any" stands for all commands, "none" for a line without one.
namespace tervain::ctl {

std::string bashTables();
std::string zshCases();
std::string zshCommands();
std::string zshCommon();
std::string fishValues();
std::string fishCompletions();
std::string manualOptions();
std::string manualCommands();

/// A document with its tables of commands made anew: first those that stand by themselves, then
/// those of a session.
std::string documentWithTables(std::string_view document);

// What several of them need.

/// An option's spellings; none for an argument.
std::vector<std::string_view> spellings(const Option& option);

/// The words that a shell can offer for a value: choices, or a few numbers.
std::vector<std::string> offers(const Option& option);

/// The placeholders of an option's values.
std::vector<std::string_view> placeholders(const Option& option);

/// A text in single quotes, each quote in it replaced.
std::string quoted(std::string_view text, std::string_view quote);

std::string joined(const std::vector<std::string>& words);

}  // namespace tervain::ctl
