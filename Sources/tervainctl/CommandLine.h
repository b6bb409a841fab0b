#pragma once

#include <string>
#include <variant>
#include <vector>

#include "tervainctl/CommandTable/Arguments.h"

namespace tervain::ctl {

/// The words of a command line.
using Words = std::vector<std::string>;

/// What a command line asks for.
struct Invocation {
  const Command& command;
  Json arguments;
};

/// Where a command line comes from.
enum class Source { shell, session };

/// Parses a command line, the program's name left out. One that asks for help, or can't be
/// understood, is answered at once, and gives the exit status. Throws AgentError when nobody reads
/// the help.
std::variant<Invocation, int> parseCommandLine(Words line, Source source);

}  // namespace tervain::ctl
