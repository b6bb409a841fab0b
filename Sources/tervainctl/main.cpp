#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "VMAgentClient/AgentNames.h"
#include "VMAgentClient/Connect.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/CommandLine.h"
#include "tervainctl/Commands.h"
#include "tervainctl/Ssh.h"
#include "tervainctl/TimeLimit.h"

namespace tervain::ctl {
namespace {

int act(const Command& command, const Json& arguments) {
  const auto action = actionOf(command);
  if (const auto* errand = std::get_if<Errand>(&action)) {
    return (*errand)({.command = command, .arguments = arguments});
  }
  const AgentAddress agent = agentOf(arguments);
  AgentConnection connection(connectTo(agent));
  awaitAnswer(connection);
  return std::get<Action>(action)(connection,
                                  {.command = command, .arguments = arguments, .agent = agent});
}

int perform(const Invocation& invocation) {
  const Command& command = invocation.command;
  if (isAimed(command, invocation.arguments, Aim::ref)) {
    const std::string name(command.name);
    complain("a ref lives only as long as a connection: give \"tree\" and \"" + name +
             " REF\" to one \"tervainctl session\", or name the element by --role, --title or "
             "--value");
    return badUsage;
  }
  if (!command.timesItself) {
    endAfter(limitOf(command, invocation.arguments));
  }
  const int misused = std::max(badUsage, command.failure);
  try {
    return act(command, invocation.arguments);
  } catch (const OutputClosed&) {
    return outputClosed;
  } catch (const NoSuchAgent& error) {
    complain(error.what());
    return misused;
  } catch (const BadArgument& error) {
    complain(error.what());
    return misused;
  } catch (const std::exception& error) {
    complain(error.what());
    return command.failure;
  }
}

int run(Words line) {
  const auto parsed = parseCommandLine(std::move(line), Source::shell);
  if (const int* status = std::get_if<int>(&parsed)) {
    return *status;
  }
  return perform(std::get<Invocation>(parsed));
}

}  // namespace
}  // namespace tervain::ctl

namespace {

bool calledAsSsh(std::string_view program) {
  return program.substr(program.rfind('/') + 1) == "tervain-ssh";
}

}  // namespace

int main(int argc, char** argv) {
  tervain::occupyStandardDescriptors();
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const std::vector<std::string> words{argv + std::min(argc, 1), argv + argc};
    return calledAsSsh(argc > 0 ? argv[0] : "") ? tervain::ctl::runSsh(words)
                                                : tervain::ctl::run(words);
  } catch (const std::exception& error) {
    tervain::ctl::complain(error.what());
    return EXIT_FAILURE;
  }
}
