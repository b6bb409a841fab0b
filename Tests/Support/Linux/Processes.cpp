#include "Support/Processes.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "Support/Program.h"

namespace fs = std::filesystem;

namespace tervain::test {
namespace {

std::string folderOf(pid_t process) {
  return "/proc/" + std::to_string(process);
}

std::size_t entriesOf(const std::string& dir) {
  std::error_code failed;
  const auto entries = fs::directory_iterator(dir, failed);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::vector<pid_t> childrenOf(pid_t process) {
  std::string pids;
  for (const auto& task : fs::directory_iterator(folderOf(process) + "/task")) {
    pids += textOf(task.path() / "children");
  }
  std::istringstream stream(pids);
  return {std::istream_iterator<pid_t>(stream), {}};
}

Footprint footprintOf(pid_t process) {
  return {entriesOf(folderOf(process) + "/fd"), entriesOf(folderOf(process) + "/task"),
          childrenOf(process).size()};
}

std::size_t residentBytesOf(pid_t process) {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream(folderOf(process) + "/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t peakBytesOf(pid_t process) {
  const std::string status = textOf(folderOf(process) + "/status");
  constexpr std::string_view name = "VmHWM:";
  return std::stoul(status.substr(status.find(name) + name.size())) * 1024;
}

bool isRunning(pid_t process) {
  const std::string stat = textOf(folderOf(process) + "/stat");
  const std::size_t nameEnd = stat.rfind(')');
  return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") Z") != 0;
}

}  // namespace tervain::test
