#pragma once

#include <functional>

#include "tervainctl/Commands.h"

namespace tervain::ctl {

/// Performs the command that a command line names, or says why not; returns its exit status.
/// `words` are those behind "--".
using Perform =
    std::function<int(const Command& command, const Action& action, const Words& words)>;

/// Parses a command line, the program's name left out, with every subcommand declared in `app`.
/// Prints help if that is what it asks for. Returns the exit status, `badUsage` for a line that
/// can't be parsed.
int runCommandLine(CLI::App& app, Words arguments, const Perform& perform);

}  // namespace tervain::ctl
