#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/CommandLine.h"

namespace tervain::ctl {
namespace {

constexpr const char* addressHelp =
    "Where the agent listens: vsock:CID[:PORT] or unix:PATH (environment: TERVAIN_AGENT)";

constexpr std::string_view noAddress =
    "no agent named; give --agent ADDRESS or set TERVAIN_AGENT, where ADDRESS is vsock:CID, "
    "vsock:CID:PORT or unix:PATH";

int perform(const Command& command, const Action& action, const std::string& agent,
            const Words& words) {
  if (command.place == Place::session) {
    complain(std::string(command.name) +
             " needs a ref, which lives only as long as a connection: give \"tree\" and \"" +
             command.name + " REF\" to one \"tervainctl session\"");
    return badUsage;
  }
  const auto address = parseAgentAddress(agent);
  if (!address) {
    complain(agent.empty() ? noAddress : "not an address of an agent: " + agent);
    return std::max(badUsage, command.failure);
  }
  try {
    AgentConnection connection(connectTo(*address));
    return action(connection, {.words = words, .inSession = false, .agent = *address});
  } catch (const AgentError& error) {
    if (error.code() == EPIPE) {
      return outputClosed;
    }
    complain(error.what());
    return command.failure;
  }
}

int run(Words arguments) {
  CLI::App app("Talks to the TervainVMAgent of a virtual machine.", "tervainctl");
  std::string agent;
  app.add_option("-a,--agent", agent, addressHelp)->envname("TERVAIN_AGENT");
  app.set_version_flag("--version", "tervainctl " TERVAIN_VERSION, "Print the version and exit");
  app.fallthrough();
  return runCommandLine(app, std::move(arguments),
                        [&](const Command& command, const Action& action, const Words& words) {
                          return perform(command, action, agent, words);
                        });
}

}  // namespace
}  // namespace tervain::ctl

int main(int argc, char** argv) {
  tervain::occupyStandardDescriptors();
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return tervain::ctl::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    tervain::ctl::complain(error.what());
    return EXIT_FAILURE;
  }
}
