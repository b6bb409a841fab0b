#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

constexpr const char* addressHelp =
    "Where the agent listens: vsock:CID[:PORT] or unix:PATH (environment: TERVAIN_AGENT)";

constexpr std::string_view noAddress =
    "no agent named; give --agent ADDRESS or set TERVAIN_AGENT, where ADDRESS is vsock:CID, "
    "vsock:CID:PORT or unix:PATH";

int perform(const Command& command, const Action& action, const std::string& agent,
            const Words& words) {
  if (command.takesWords == words.empty()) {
    complain(std::string(command.name) +
             (command.takesWords ? " needs a command: -- COMMAND..." : " takes nothing behind --"));
    return std::max(badUsage, command.failure);
  }
  const auto address = parseAgentAddress(agent);
  if (!address) {
    complain(agent.empty() ? noAddress : "not an address of an agent: " + agent);
    return std::max(badUsage, command.failure);
  }
  try {
    return action(AgentConnection(connectTo(*address)), words);
  } catch (const AgentError& error) {
    if (error.code() == EPIPE) {
      return outputClosed;
    }
    complain(error.what());
    return command.failure;
  }
}

/// The words behind the first "--" are a command's own: the parser, which would make a list of a
/// word in brackets, does not get to see them.
int run(std::vector<std::string> arguments) {
  const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
  const Words words(dashes == arguments.end() ? dashes : dashes + 1, arguments.end());
  arguments.erase(dashes, arguments.end());
  std::reverse(arguments.begin(), arguments.end());  // the order in which the parser takes them

  CLI::App app("Talks to the TervainVMAgent of a virtual machine.", "tervainctl");
  std::string agent;
  app.add_option("-a,--agent", agent, addressHelp)->envname("TERVAIN_AGENT");
  app.require_subcommand(1);
  app.fallthrough();
  int status = badUsage;
  for (const Command& command : commands()) {
    CLI::App& options = *app.add_subcommand(command.name, command.help);
    options.final_callback([&, action = command.declare(options)] {
      status = perform(command, action, agent, words);
    });
  }
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : badUsage;
  }
  return status;
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
