#include "Support/AgentProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "VMAgentCore/SpawnGroupLeader.h"

namespace fs = std::filesystem;

namespace tervain::test {
namespace {

UniqueFD openFile(const std::string& path, int flags) {
  return UniqueFD(open(path.c_str(), flags | O_CLOEXEC, 0600));
}

std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

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

pid_t spawn(const std::vector<std::string>& command, const Environment& environment,
            const std::string& log) {
  const UniqueFD null = openFile("/dev/null", O_RDWR);
  const UniqueFD err = openFile(log, O_WRONLY | O_CREAT | O_APPEND);
  return spawnGroupLeader(command.front(), std::span(command).subspan(1), environment, null.get(),
                          err.get(), err.get());
}

}  // namespace

AgentProcess::AgentProcess(const Options& options) : socket_(dir_.path("agent.sock")) {
  std::vector<std::string> command{SERVE_UNIX_PATH, socket_};
  command.insert(command.end(), options.prefix.begin(), options.prefix.end());
  command.emplace_back(AGENT_PATH);
  pid_ = spawn(command, cleanEnvironment(options.environment), dir_.path("log"));
  // The socket exists before the agent does; a reply shows that the agent serves it.
  connect().ask(R"({"op":"ping"})");
  eventually([this] { return log().find("host disconnected") != std::string::npos; });
}

AgentProcess::~AgentProcess() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

std::string AgentProcess::log() const {
  return contentOf(dir_.path("log"));
}

bool AgentProcess::alive() const {
  return waitpid(pid_, nullptr, WNOHANG) == 0;
}

AgentProcess::Footprint AgentProcess::footprint() const {
  const std::string process = "/proc/" + std::to_string(pid_);
  std::size_t children = 0;
  for (const auto& task : fs::directory_iterator(process + "/task")) {
    std::istringstream pids(contentOf(task.path() / "children"));
    children += static_cast<std::size_t>(
        std::distance(std::istream_iterator<pid_t>(pids), std::istream_iterator<pid_t>()));
  }
  return {entriesOf(process + "/fd"), entriesOf(process + "/task"), children};
}

std::size_t AgentProcess::residentBytes() const {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/" + std::to_string(pid_) + "/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void PrintTo(const AgentProcess::Footprint& footprint, std::ostream* out) {
  *out << footprint.descriptors << " descriptors, " << footprint.threads << " threads, "
       << footprint.children << " children";
}

bool isRunning(pid_t pid) {
  const std::string stat = contentOf("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t nameEnd = stat.rfind(')');
  return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") Z") != 0;
}

Ended runToEnd(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& environment) {
  const TempDir dir;
  const pid_t pid = spawn(command, cleanEnvironment(environment), dir.path("log"));
  int status = 0;
  const bool ended = eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; });
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(dir.path("log"))};
}

}  // namespace tervain::test
