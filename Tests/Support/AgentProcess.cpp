#include "Support/AgentProcess.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "VMAgentCore/AgentWire.h"

namespace fs = std::filesystem;

namespace tervain::test {
namespace {

Environment cleanEnvironment(const std::map<std::string, std::string>& additions) {
  Environment environment = processEnvironment();
  for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR",
                           "AT_SPI_BUS_ADDRESS", "TERVAIN_AGENT_PORT"}) {
    environment.erase(name);
  }
  environment["TERVAIN_DULK_DISABLE"] = "1";
  for (const auto& [name, value] : additions) {
    environment[name] = value;
  }
  return environment;
}

std::size_t entriesOf(const std::string& dir) {
  std::error_code failed;
  const auto entries = fs::directory_iterator(dir, failed);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
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

bool AgentProcess::alive() const {
  return waitpid(pid(), nullptr, WNOHANG) == 0;
}

Footprint footprintOf(pid_t pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  std::size_t children = 0;
  for (const auto& task : fs::directory_iterator(process + "/task")) {
    std::istringstream pids(textOf(task.path() / "children"));
    children += static_cast<std::size_t>(
        std::distance(std::istream_iterator<pid_t>(pids), std::istream_iterator<pid_t>()));
  }
  return {entriesOf(process + "/fd"), entriesOf(process + "/task"), children};
}

std::size_t AgentProcess::residentBytes() const {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/" + std::to_string(pid()) + "/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void PrintTo(const Footprint& footprint, std::ostream* out) {
  *out << footprint.descriptors << " descriptors, " << footprint.threads << " threads, "
       << footprint.children << " children";
}

bool isRunning(pid_t pid) {
  const std::string stat = textOf("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t nameEnd = stat.rfind(')');
  return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") Z") != 0;
}

Ended runToEnd(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& environment, Clock::duration limit) {
  Program program(command, cleanEnvironment(environment), Program::Errors::kept);
  const int status = program.waitForEnd(limit).value_or(-1);
  return {status, program.output()};
}

}  // namespace tervain::test
