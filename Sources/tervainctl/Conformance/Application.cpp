#include "tervainctl/Conformance/Application.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "tervainctl/Conformance/GuestCommand.h"
#include "tervainctl/Conformance/Patience.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

/// The guest's processes whose program has this name, in whatever case and folder.
std::vector<std::int64_t> processesNamed(const Guest& guest, std::string_view name) {
  constexpr std::size_t linuxNameLength = 15;  // "ps" has no more of a program's name there
  const std::string wanted = lowerCase(guest.isMac() ? name : name.substr(0, linuxNameLength));
  std::istringstream lines(runToEnd(guest, "ps -A -o pid= -o comm=").out);
  std::vector<std::int64_t> pids;
  std::int64_t pid = 0;
  std::string program;
  while (lines >> pid && std::getline(lines >> std::ws, program)) {
    if (lowerCase(program.substr(program.rfind('/') + 1)) == wanted) {
      pids.push_back(pid);
    }
  }
  return pids;
}

}  // namespace

Application::Application(const Guest& guest, std::string name)
    : guest_(guest), name_(std::move(name)), host_(guest.connect()) {}

Application::~Application() {
  try {
    end();
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the guest is out of reach
  }
}

bool Application::launch(Findings& findings) {
  if (findOnDesktop() != 0) {
    findings.skip(name_ +
                  " runs already, maybe with somebody's work; end it, or name "
                  "another with --app or --other");
    return false;
  }
  const Json reply = perform("launch_app", {{"name", name_}});
  if (reply == failure("no application named \"" + name_ + "\" (open -a exited 1)")) {
    findings.skip("there is no " + name_);
    return false;
  }
  if (!findings.expectEqual("launch_app", reply, success) ||
      !findings.expect(eventually([this] { return (pid_ = findOnDesktop()) != 0; }),
                       "no process named " + name_ + " comes to the desktop")) {
    return false;
  }
  return eventually([this] { return isInFront(); }) ||
         findings.expect(false, name_ + " does not come to the front, where a dump without " +
                                    "\"pid\" has " + nameInDump(Json::object()));
}

bool Application::end() {
  if (pid_ == 0) {
    return true;
  }
  constexpr std::chrono::seconds grace{5};
  const std::string pid = std::to_string(pid_);
  const auto ends = [&](const std::string& signal) {
    runToEnd(guest_, "kill -" + signal + " " + pid);
    return eventually([&] { return !isRunning(guest_, pid_); }, grace);
  };
  const bool ended = ends("TERM") || ends("KILL");
  pid_ = 0;
  return ended;
}

bool Application::isInFront() {
  const std::string name = nameInDump({{"pid", pid_}});
  return !name.empty() && nameInDump(Json::object()) == name;
}

std::string Application::nameInDump(Json target) {
  target["maxDepth"] = 1;
  return perform("ax_dump", std::move(target)).value("app", "");
}

Json Application::dump() {
  constexpr int deepest = 25;
  return perform("ax_dump", {{"pid", pid_}, {"maxDepth", deepest}});
}

Json Application::perform(const char* op, Json fields) {
  fields["op"] = op;
  return host_.request(fields, soon());
}

std::int64_t Application::findOnDesktop() {
  // Of a process that is on no desktop, or on another user's, there is nothing but a bare root.
  for (const std::int64_t pid : processesNamed(guest_, name_)) {
    if (perform("ax_dump", {{"pid", pid}, {"maxDepth", 1}})
            .value("tree", Json())
            .contains("role")) {
      return pid;
    }
  }
  return 0;
}

}  // namespace tervain::ctl::conform
