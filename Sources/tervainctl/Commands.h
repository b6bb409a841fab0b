#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentClient/AgentConnection.h"
#include "VMAgentClient/Elements.h"
#include "tervainctl/CommandTable/Arguments.h"

namespace tervain::ctl {

/// Nobody reads our output any more, so there is nobody to tell about it either.
struct OutputClosed : std::exception {
  [[nodiscard]] const char* what() const noexcept override {
    return "the reader of the output has gone";
  }
};

/// How a command is called.
struct Call {
  const Command& command;
  Json arguments;
  bool inSession = false;  // standard input has further commands
  AgentAddress agent{};    // what the connection leads to, for further connections
};

/// Does what a command is for, and returns its exit status. It may use the connection up. Throws
/// what AgentConnection throws, Refusal, OutputClosed, and NoSuchAgent or BadArgument for a call
/// that makes no sense.
using Action = int (*)(AgentConnection& connection, const Call& call);

/// The same for a command that makes its connections itself, if any: `call.agent` is not filled in.
using Errand = int (*)(const Call& call);

/// What a command of the table does.
std::variant<Action, Errand> actionOf(const Command& command);

/// The agent that a call names: its text, which may be a name, and its address. Throws NoSuchAgent
/// and AgentError.
std::string agentText(const Json& arguments);
AgentAddress agentOf(const Json& arguments);

/// The seconds that a call may take: what the user says, or else the command's own limit.
double limitOf(const Command& command, const Json& arguments);

// The actions, each family in a file of its own.
int showStatus(AgentConnection& connection, const Call& call);
int showPointer(AgentConnection& connection, const Call& call);
int takeScreenshot(AgentConnection& connection, const Call& call);
int type(AgentConnection& connection, const Call& call);
int showTree(AgentConnection& connection, const Call& call);
int showElementAt(AgentConnection& connection, const Call& call);
int findElements(AgentConnection& connection, const Call& call);
int waitForElements(AgentConnection& connection, const Call& call);
int pressElement(AgentConnection& connection, const Call& call);
int setElement(AgentConnection& connection, const Call& call);
int focusElement(AgentConnection& connection, const Call& call);
int click(AgentConnection& connection, const Call& call);
int inspect(AgentConnection& connection, const Call& call);
int useClipboard(AgentConnection& connection, const Call& call);
int runExec(AgentConnection& connection, const Call& call);
int runShell(AgentConnection& connection, const Call& call);
int listAgents(const Call& call);
int waitReady(const Call& call);
int examine(const Call& call);
int collectShellEvents(AgentConnection& connection, const Call& call);
int runSession(AgentConnection& connection, const Call& call);
int checkConformance(const Call& call);
int exchangeLines(AgentConnection& connection, const Call& call);
int serveAiHost(const Call& call);
int showAiHostSettings(const Call& call);

/// Which elements a command looks at.
Scope scopeOf(const Call& call);

/// Whether a flag was given.
bool given(const Call& call, std::string_view key);

/// An argument that is a text; nothing when it was not given.
std::optional<std::string> textArgument(const Call& call, std::string_view key);

/// Sends the request that a command with an `op` makes of its arguments, and returns its reply.
/// Throws Refusal as well.
Json ask(AgentConnection& connection, const Call& call);

/// Sends a request that is answered by success alone, and returns the exit status. A note in the
/// reply goes to standard error. Throws Refusal as well.
int tell(AgentConnection& connection, const Json& request);

/// A member that is an integer, in decimal, or a question mark.
std::string numberText(const Json& object, std::string_view key);

/// Writes to standard output, at once. Throws OutputClosed and AgentError.
void print(std::string_view bytes);

/// Throws what a write that has just failed, with its reason in errno, is told as.
[[noreturn]] void throwWriteError(std::string_view phrase);

/// Writes a line for the user to standard error: that something failed, or, as a remark, what else
/// there is to know.
void complain(std::string_view message);
void remark(std::string_view message);

}  // namespace tervain::ctl
