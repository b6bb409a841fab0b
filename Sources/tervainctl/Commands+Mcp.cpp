#include <unistd.h>

#include <cstdlib>

#include "VMAgentClient/AgentNames.h"
#include "VMAgentClient/Connect.h"
#include "VMAgentCore/OwnPath.h"
#include "tervainctl/Commands.h"
#include "tervainctl/Mcp/HostSettings.h"
#include "tervainctl/Mcp/Server.h"

namespace tervain::ctl {
namespace {

/// Where an agent is may be told later than it is started, and is looked at for each connection.
UniqueFD connectToAgent(const std::optional<std::string>& agent) {
  if (!agent) {
    throw std::runtime_error(
        "No agent is named: the host's settings for this server must have --agent AGENT among "
        "its arguments, or TERVAIN_AGENT in its environment. Only the user can change that.");
  }
  return connectTo(resolveAgent(*agent, processEnvironment()));
}

/// This program. A host may be started where the user's paths are not known.
std::string thisProgram() {
  const std::string path = ownPath();
  return path.empty() ? "tervainctl" : path;
}

}  // namespace

int serveAiHost(const Call& call) {
  const auto agent = textArgument(call, "agent");
  mcp::Server server([agent] { return connectToAgent(agent); },
                     [](std::string_view line) { print(std::string(line) + "\n"); },
                     TERVAIN_VERSION);
  if (!mcp::serve(server, STDIN_FILENO)) {
    std::_Exit(0);  // what still hangs must not keep us
  }
  return 0;
}

int showAiHostSettings(const Call& call) {
  std::vector<std::string> line{thisProgram()};
  if (const auto agent = textArgument(call, "agent")) {
    line.insert(line.end(), {"--agent", *agent});
  } else {
    line.insert(line.end(), {"--agent", "vsock:CID"});
    remark("put the agent's address in the place of vsock:CID");
  }
  line.emplace_back("mcp");
  const auto settings = mcp::settingsFor(textArgument(call, "client").value_or(""), line);
  if (!settings) {
    return badUsage;
  }
  remark(settings->place);
  print(settings->text);
  return 0;
}

}  // namespace tervain::ctl
