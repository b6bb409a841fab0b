#include "tervainctl/Commands.h"

#include <unistd.h>

#include <cerrno>
#include <map>

#include "VMAgentClient/AgentNames.h"
#include "VMAgentClient/Refusal.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"

namespace tervain::ctl {
namespace {

constexpr std::string_view noAgent =
    "no agent named; give --agent AGENT or set TERVAIN_AGENT, where AGENT is vsock:CID, "
    "vsock:CID:PORT, unix:PATH, unix-mux:PATH, exec:COMMAND or a name";

/// For the commands that are one request, answered by success alone.
int tellRequest(AgentConnection& connection, const Call& call) {
  return tell(connection, requestOf(call.command, call.arguments));
}

void writeLine(std::string_view message) {
  std::string line = "tervainctl: ";
  writeAll(STDERR_FILENO, line.append(message).append("\n"));
}

}  // namespace

std::variant<Action, Errand> actionOf(const Command& command) {
  static const std::map<std::string_view, std::variant<Action, Errand>> actions{
      {"ping", showStatus},
      {"cursor", showPointer},
      {"screenshot", takeScreenshot},
      {"click", click},
      {"move", tellRequest},
      {"drag", tellRequest},
      {"scroll", tellRequest},
      {"type", type},
      {"key", tellRequest},
      {"launch", tellRequest},
      {"tree", showTree},
      {"at", showElementAt},
      {"find", findElements},
      {"wait", waitForElements},
      {"press", pressElement},
      {"set", setElement},
      {"focus", focusElement},
      {"inspect", inspect},
      {"clipboard", useClipboard},
      {"exec", runExec},
      {"shell", runShell},
      {"agents", listAgents},
      {"wait-ready", waitReady},
      {"doctor", examine},
      {"session", runSession},
      {"conform", checkConformance},
      {"events", collectShellEvents},
      {"raw", exchangeLines},
      {"mcp", serveAiHost},
      {"mcp-config", showAiHostSettings},
  };
  return actions.at(command.name);
}

std::string agentText(const Json& arguments) {
  const std::string* const agent = stringMember(arguments, "agent");
  if (!agent) {
    throw NoSuchAgent(std::string(noAgent));
  }
  return *agent;
}

AgentAddress agentOf(const Json& arguments) {
  return resolveAgent(agentText(arguments), processEnvironment());
}

double limitOf(const Command& command, const Json& arguments) {
  return arguments.value("timeout", command.limit);
}

bool given(const Call& call, std::string_view key) {
  return truthy(call.arguments, key);
}

std::optional<std::string> textArgument(const Call& call, std::string_view key) {
  const std::string* text = stringMember(call.arguments, key);
  return text ? std::optional(*text) : std::nullopt;
}

Json ask(AgentConnection& connection, const Call& call) {
  return successOf(connection, requestOf(call.command, call.arguments));
}

int tell(AgentConnection& connection, const Json& request) {
  const Json reply = successOf(connection, request);
  if (const std::string* note = stringMember(reply, "note")) {
    remark(*note);
  }
  return 0;
}

std::string numberText(const Json& object, std::string_view key) {
  const auto number = integerMember(object, key);
  return number ? std::to_string(*number) : "?";
}

void print(std::string_view bytes) {
  if (!writeAll(STDOUT_FILENO, bytes)) {
    throwWriteError("writing the output");
  }
}

void throwWriteError(std::string_view phrase) {
  if (errno == EPIPE) {
    throw OutputClosed();
  }
  throw AgentError::posix(phrase, errno);
}

void complain(std::string_view message) {
  writeLine(message);
}

void remark(std::string_view message) {
  writeLine(message);
}

}  // namespace tervain::ctl
