#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VMAgentClient/AgentAddress.h"
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

/// The words of a command line.
using Words = std::vector<std::string>;

/// How a command is called, beside its options.
struct Call {
  Words words;             // behind "--", as they were given
  bool inSession = false;  // standard input has further commands
  AgentAddress agent;      // what the connection leads to, for further connections
};

/// Does what a subcommand is for, and returns its exit status. It may use the connection up. Throws
/// AgentError.
using Action = std::function<int(AgentConnection& connection, const Call& call)>;

/// Where a subcommand is of use.
enum class Place {
  anywhere,
  alone,    // takes the connection, or standard input, for itself
  session,  // names elements by refs, which are gone with the connection
};

/// A subcommand: its options are declared first and read by the action once they are parsed.
struct Command {
  const char* name = nullptr;
  const char* help = nullptr;
  Action (*declare)(CLI::App& options) = nullptr;
  Place place = Place::anywhere;
  bool takesWords = false;
  int failure = failed;  // the exit status when the action throws, or without an agent to talk to
};

/// Every subcommand.
std::span<const Command> commands();

// What the subcommands do, each family in a file of its own.
Action declarePing(CLI::App& options);
Action declareCursor(CLI::App& options);
Action declareScreenshot(CLI::App& options);
Action declareClick(CLI::App& options);
Action declareMove(CLI::App& options);
Action declareDrag(CLI::App& options);
Action declareScroll(CLI::App& options);
Action declareType(CLI::App& options);
Action declareKey(CLI::App& options);
Action declareLaunch(CLI::App& options);
Action declareTree(CLI::App& options);
Action declareAt(CLI::App& options);
Action declarePress(CLI::App& options);
Action declareSet(CLI::App& options);
Action declareFocus(CLI::App& options);
Action declareExec(CLI::App& options);
Action declareEvents(CLI::App& options);
Action declareSession(CLI::App& options);
Action declareConform(CLI::App& options);
Action declareRaw(CLI::App& options);

/// Sends a request and returns its reply, or prints the reply's error text if it is a failure.
std::optional<Json> ask(AgentConnection& connection, const Json& request);

/// Sends a request that is answered by success alone, and returns the exit status. A note in the
/// reply goes to standard error.
int tell(AgentConnection& connection, const Json& request);

/// A member that is an integer, in decimal, or a question mark.
std::string numberText(const Json& object, std::string_view key);

/// Writes to standard output, at once. Throws AgentError.
void print(std::string_view bytes);

/// Writes a line for the user to standard error.
void complain(std::string_view message);

}  // namespace tervain::ctl
