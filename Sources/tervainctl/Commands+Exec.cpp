#include <unistd.h>

#include "VMAgentClient/GuestShell.h"
#include "tervainctl/CommandTable/Arguments.h"
#include "tervainctl/Commands.h"
#include "tervainctl/RunInGuest.h"

namespace tervain::ctl {
namespace {

GuestShell::Surroundings surroundingsOf(const Call& call) {
  GuestShell::Surroundings surroundings{.folder = textArgument(call, "cd")};
  for (const Json& entry : call.arguments.value("env", Json::array())) {
    const auto text = entry.get<std::string>();
    const std::size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    if (equals == text.npos || !GuestShell::isVariable(name)) {
      throw BadArgument("--env: \"" + text + "\" is not NAME=VALUE");
    }
    surroundings.environment[name] = text.substr(equals + 1);
  }
  return surroundings;
}

int run(AgentConnection& connection, const Call& call, std::string_view command, bool terminal) {
  return runInGuest(std::move(connection), call.agent,
                    {.line = GuestShell::inSurroundings(command, surroundingsOf(call)),
                     .noInput = given(call, "noInput"),
                     .terminal = terminal});
}

}  // namespace

int runExec(AgentConnection& connection, const Call& call) {
  const bool wanted = given(call, "terminal");
  const bool terminal = wanted && isatty(STDIN_FILENO) == 1;
  if (wanted && !terminal) {
    remark("standard input is no terminal, so the command gets none");
  }
  const auto words = call.arguments.at("command").get<std::vector<std::string>>();
  return run(connection, call, GuestShell::commandLine(words), terminal);
}

int runShell(AgentConnection& connection, const Call& call) {
  return run(connection, call, GuestShell::loginShell(), isatty(STDIN_FILENO) == 1);
}

}  // namespace tervain::ctl
