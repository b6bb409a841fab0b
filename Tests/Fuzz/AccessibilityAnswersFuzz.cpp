// What an application may answer on the accessibility bus: the requests of a host are answered in
// their turn and with JSON, whatever it says. The lines of an input are requests, windows of the
// application (which are at every point) as "window X Y WIDTH HEIGHT MANAGED", maybe with a
// shadow's "LEFT RIGHT TOP BOTTOM", and else what the application answers.
#include <sstream>

#include "Fuzz/Fuzz.h"
#include "Fuzz/HostileApplication.h"
#include "Fuzz/Requests.h"
#include "Platform/Linux/Accessibility/Applications.h"
#include "Platform/Linux/X11/Windows.h"
#include "VMAgentCore/Json.h"

namespace tervain {
namespace {

std::vector<Linux::X11::Window>& windows() {
  static std::vector<Linux::X11::Window> windows;
  return windows;
}

Linux::X11::Window readWindow(std::istream& line) {
  std::int16_t x = 0;
  std::int16_t y = 0;
  std::uint16_t sizes[6] = {};
  bool isManaged = false;
  line >> x >> y >> sizes[0] >> sizes[1] >> isManaged;
  Linux::X11::Window window{.pid = fuzz::HostileApplication::pid,
                            .place = {x, y, sizes[0], sizes[1]},
                            .isManaged = isManaged,
                            .title = "Save ",
                            .shadow = {}};
  if (line >> sizes[2] >> sizes[3] >> sizes[4] >> sizes[5]) {
    window.shadow = {sizes[2], sizes[3], sizes[4], sizes[5]};
  }
  return window;
}

bool isOfAccessibility(const std::string& request) {
  const auto object = parseObject(request);
  const std::string* op = object ? stringMember(*object, "op") : nullptr;
  return op && op->starts_with("ax_");
}

}  // namespace

// What the accessibility of the port asks an X server.
namespace Linux::X11 {

Session::Session(Connection connection, Deadline deadline)
    : connection_(std::move(connection)), deadline_(deadline) {}
Session::~Session() = default;
std::optional<Session> Session::open(Deadline deadline) {
  return Session(nullptr, deadline);
}
std::vector<Window> windowsOf(Session& /*x11*/, pid_t /*pid*/) {
  return windows();
}
std::vector<Window> popupsOf(Session& /*x11*/, pid_t /*pid*/) {
  return windows();
}
std::optional<Window> windowAt(Session& /*x11*/, int /*x*/, int /*y*/) {
  return windows().empty() ? std::nullopt : std::optional(windows().front());
}
std::optional<pid_t> activeProcess(Session& /*x11*/) {
  return fuzz::HostileApplication::pid;
}
xcb_window_t activeWindow(Session& /*x11*/) {
  return XCB_WINDOW_NONE;
}
void activate(Session& /*x11*/, xcb_window_t /*window*/) {}

}  // namespace Linux::X11
}  // namespace tervain

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tervain;
  fuzz::HostileApplication::openBus();
  windows().clear();
  std::string requests;
  std::deque<std::string> answers;
  std::istringstream input{std::string(fuzz::textOf(data, size))};
  for (std::string line; std::getline(input, line);) {
    std::istringstream words(line);
    if (line.starts_with('{')) {
      requests += isOfAccessibility(line) ? line + '\n' : "";
    } else if (std::string word; words >> word && word == "window") {
      windows().push_back(readWindow(words));
    } else {
      answers.push_back(line);
    }
  }
  const fuzz::LeakCheck leaks;
  {
    const fuzz::HostileApplication application(std::move(answers));
    fuzz::serveRequests({requests}, SOCK_STREAM);
  }
  Linux::dropEndedConnections();
  return 0;
}
