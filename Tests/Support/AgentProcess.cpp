#include "Support/AgentProcess.h"

#include <cstdlib>
#include <ostream>

#include "VMAgentCore/AgentWire.h"

namespace tervain::test {
namespace {

Environment cleanEnvironment(const std::map<std::string, std::string>& additions) {
  Environment environment = processEnvironment();
  for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR",
                           "AT_SPI_BUS_ADDRESS", "TERVAIN_AGENT_PORT"}) {
    environment.erase(name);
  }
  environment.insert_or_assign("TERVAIN_DULK_DISABLE", std::string("1"));
  for (const auto& [name, value] : additions) {
    environment[name] = value;
  }
  return environment;
}

}  // namespace

AgentProcess::AgentProcess(const Options& options) : socket_(dir_.path("agent.sock")) {
  const Environment environment = cleanEnvironment(options.environment);
  std::vector<std::string> command{SERVE_UNIX_PATH, socket_};
  if (std::getenv("TERVAIN_TEST_VSOCK")) {
    const auto port = environment.find("TERVAIN_AGENT_PORT");
    vsockPort_ = port == environment.end() ? AgentWire::port
                                           : static_cast<std::uint32_t>(std::stoul(port->second));
    command.clear();
  }
  command.insert(command.end(), options.prefix.begin(), options.prefix.end());
  command.emplace_back(AGENT_PATH);
  program_.emplace(command, environment, Program::Errors::kept);
  // The socket may exist before the agent does; a reply shows that the agent serves it.
  connect().ask(R"({"op":"ping"})");
  eventually([this] { return log().find("host disconnected") != std::string::npos; });
}

void PrintTo(const Footprint& footprint, std::ostream* out) {
  *out << footprint.descriptors << " descriptors, " << footprint.threads << " threads, "
       << footprint.children << " children";
}

Ended runToEnd(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& environment, Clock::duration limit) {
  Program program(command, cleanEnvironment(environment), Program::Errors::kept);
  const int status = program.waitForEnd(limit).value_or(-1);
  return {status, program.output()};
}

}  // namespace tervain::test
