#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VMAgentClient/AgentConnection.h"

namespace CLI {
class App;
}

namespace tervain::ctl {

/// Exit statuses of the tool itself.
inline constexpr int failed = 1;
inline constexpr int badUsage = 2;
/// What a shell reports of a program that SIGPIPE has ended: the reader of the output has gone.
inline constexpr int outputClosed = 141;
/// The command of an exec could not be run, or was lost; its own status can be anything.
inline constexpr int notRun = 255;

/// The words behind "--" on the command line, as they were given.
using Words = std::vector<std::string>;

/// Does what a subcommand is for, and returns the tool's exit status. Throws AgentError.
using Action = std::function<int(AgentConnection connection, const Words& words)>;

/// A subcommand: its options are declared first and read by the action once they are parsed.
struct Command {
  const char* name;
  const char* help;
  Action (*declare)(CLI::App& options);
  bool takesWords;
  int failure;  // the exit status when the action throws, or when there is no agent to talk to
};

/// Every subcommand.
std::span<const Command> commands();

// What the subcommands do, each family in a file of its own.
Action declarePing(CLI::App& options);
Action declareCursor(CLI::App& options);
Action declareExec(CLI::App& options);
Action declareEvents(CLI::App& options);
Action declareRaw(CLI::App& options);

/// Sends a request and returns its reply, or prints the reply's error text if it is a failure.
std::optional<Json> ask(AgentConnection& connection, const Json& request);

/// Writes to standard output, at once. Throws AgentError.
void print(std::string_view bytes);

/// Writes a line for the user to standard error.
void complain(std::string_view message);

}  // namespace tervain::ctl
