#include "TervainVMAgent/Checkup.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <optional>
#include <variant>
#include <vector>

#include "CVsock/cvsock.h"
#include "Platform/Capture.h"
#include "Platform/Displays.h"
#include "Platform/Events.h"
#include "Platform/Pointer.h"
#include "Platform/Privacy.h"
#include "Platform/Process.h"
#include "TervainVMAgent/Errands.h"
#include "TervainVMAgent/InheritedListener.h"
#include "TervainVMAgent/StartUp.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/NeverDestroyed.h"
#include "VMAgentCore/RunProgram.h"
#include "VMAgentCore/ShellSpool.h"

namespace tervain {
namespace {

using Platform::Finding;
using Platform::fine;
using Platform::Trouble;
using Platform::Verdict;

Finding wrong(std::string_view subject, std::string seen, Trouble trouble) {
  return Platform::wrong(subject, std::move(seen), std::string(Platform::remedyFor(trouble)));
}

/// What could not be tried, for something else that is wrong.
Finding untried(std::string_view subject, std::string why) {
  return Platform::unsure(subject, "not tried: " + std::move(why));
}

Finding displays() {
  constexpr std::string_view subject = "displays";
  std::string sizes;
  for (const Platform::Display& display : Platform::activeDisplays(AgentWire::maxDisplays)) {
    sizes.append(sizes.empty() ? "" : ", ").append(std::to_string(display.width));
    sizes.append("x").append(std::to_string(display.height));
  }
  return sizes.empty() ? wrong(subject, "there is none", Trouble::noDisplay) : fine(subject, sizes);
}

Finding grant(std::string_view name, bool given, Trouble trouble) {
  return given ? fine(name, "granted") : wrong(name, "not granted", trouble);
}

/// A grid fine enough for a menu bar or a panel to be met, and its share of samples that have to be
/// of another colour than the rest. The pointer, which is in every picture, covers less.
constexpr std::size_t gridLines = 128;
constexpr std::size_t leastOther = gridLines * gridLines / 100;

/// How many values are not the commonest one, which at least half of them must be for this to be
/// exact.
std::size_t unlikeTheRest(const std::vector<std::uint32_t>& values) {
  std::uint32_t commonest = 0;
  std::size_t lead = 0;
  for (const std::uint32_t value : values) {
    if (lead == 0) {
      commonest = value;
    }
    lead = value == commonest ? lead + 1 : lead - 1;
  }
  const auto same = std::count(values.begin(), values.end(), commonest);
  return values.size() - static_cast<std::size_t>(same);
}

/// Takes a picture of the first display.
Finding takePicture(Deadline deadline) {
  constexpr std::string_view subject = "picture";
  const auto failed = [subject](const auto& result) {
    const auto* error = std::get_if<Platform::CaptureError>(&result);
    return wrong(subject, error ? error->description : "none in time", Trouble::noPicture);
  };
  const auto listed = Platform::shareableDisplays(deadline);
  const auto* all = std::get_if<std::vector<Platform::ShareableDisplay>>(&listed);
  if (!all) {
    return failed(listed);
  }
  if (all->empty()) {
    return wrong(subject, "no display can be captured", Trouble::noDisplay);
  }
  const Platform::Size size = all->front().contentSize;
  const auto captured = Platform::captureImage(all->front(), static_cast<std::size_t>(size.width),
                                               static_cast<std::size_t>(size.height), deadline);
  const auto* image = std::get_if<Platform::Image>(&captured);
  if (!image) {
    return failed(captured);
  }
  const std::string dimensions =
      std::to_string(image->width) + "x" + std::to_string(image->height) + " pixels";
  return unlikeTheRest(Platform::sampleColours(*image, gridLines, gridLines)) < leastOther
             ? wrong(subject, dimensions + " of one colour", Trouble::noPicture)
             : fine(subject, dimensions);
}

Finding picture(std::chrono::milliseconds patience) {
  if (!Platform::screenRecordingGranted()) {
    return untried("picture", "the grant is missing");
  }
  static NeverDestroyed<Errands> captures;  // one that hangs goes on until the process ends
  const Deadline deadline = after(patience);
  auto errand = captures->begin(deadline);
  auto finding = errand ? std::move(*errand).run<Finding>(
                              [deadline] { return takePicture(deadline); }, deadline)
                        : std::nullopt;
  return finding.value_or(wrong("picture", "none in time", Trouble::noPicture));
}

bool isNear(Platform::Point a, Platform::Point b) {
  return std::abs(a.x - b.x) <= 1 && std::abs(a.y - b.y) <= 1;
}

/// Moves the pointer, as a person's hand would. False when it does not get there within a second.
bool movePointer(Platform::Point target) {
  const auto event =
      Platform::mouseEvent(Platform::MouseEventType::moved, target, Platform::MouseButton::left);
  if (!event) {
    return false;
  }
  Platform::post(*event);
  constexpr int looks = 100;
  for (int look = 0; look < looks; ++look) {
    const auto now = Platform::pointerLocation();
    if (now && isNear(*now, target)) {
      return true;
    }
    Platform::pause(std::chrono::milliseconds(10));
  }
  return false;
}

Finding pointer() {
  constexpr std::string_view subject = "pointer";
  if (!Platform::postEventGranted()) {
    return untried(subject, "the grant is missing");
  }
  const auto start = Platform::pointerLocation();
  if (!start) {
    return wrong(subject, "nobody tells where it is", Trouble::stuckPointer);
  }
  constexpr double step = 20;
  const Platform::Point target{start->x >= step ? start->x - step : start->x + step, start->y};
  if (!movePointer(target)) {
    return wrong(subject, "does not move", Trouble::stuckPointer);
  }
  return movePointer(*start) ? fine(subject, "moved, and put back")
                             : wrong(subject, "moved, but not back", Trouble::stuckPointer);
}

bool isProgram(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

Finding shell(const std::string& dulkPath, std::chrono::milliseconds patience) try {
  constexpr std::string_view subject = "shell";
  auto invocation =
      ExecSession::shellInvocation("printf ready", dulkPath, processEnvironment(), isProgram);
  if (!invocation) {
    return wrong(subject, dulkPath + " is not there", Trouble::noShell);
  }
  // Nobody wants to collect what this command leaves.
  invocation->env.erase(std::string(ShellSpool::spoolEnvKey));
  const auto ended =
      runProgram(invocation->path, invocation->args, invocation->env, after(patience));
  if (!ended) {
    return wrong(subject, invocation->path + " does not come to an end", Trouble::noShell);
  }
  if (ended->status != 0 || ended->output.find("ready") == std::string::npos) {
    return wrong(subject,
                 invocation->path + " exits " + std::to_string(ended->status) + " and says \"" +
                     ended->output.substr(0, 200) + "\"",
                 Trouble::noShell);
  }
  return fine(subject, invocation->path + " runs commands");
} catch (const AgentError& error) {
  return wrong("shell", error.what(), Trouble::noShell);
}

std::optional<bool> agentAnswers(std::uint32_t port) {
  std::uint32_t self = 0;
  if (tervain_vsock_local_cid(&self) != 0) {
    return std::nullopt;
  }
  const UniqueFD agent(tervain_vsock_connect(self, port));
  if (!agent) {
    return std::nullopt;
  }
  // An agent answers what it has got and ends the connection.
  std::string reply;
  constexpr std::size_t most = 65'536;
  return writeAll(agent.get(), "{\"op\":\"ping\"}\n") && shutdown(agent.get(), SHUT_WR) == 0 &&
         readToEnd(agent.get(), reply, most, after(std::chrono::seconds(3))) &&
         reply.find("\"version\"") != std::string::npos;
}

Finding port(const CheckupSettings& settings) {
  constexpr std::string_view subject = "port";
  if (settings.isReached) {
    return fine(subject, "the agent is reached by its host");
  }
  if (inheritedListener()) {
    return fine(subject, "a listening socket is handed over");
  }
  const std::string name = "vsock port " + std::to_string(settings.port);
  const int result = settings.listen(settings.port);
  if (result >= 0) {
    close(result);
    return wrong(subject, "nobody listens on " + name, Trouble::nobodyListens);
  }
  if (const int error = -result; error != EADDRINUSE) {
    return wrong(subject, AgentError::posix(name, error).what(), Trouble::noVsock);
  }
  const auto agent = settings.agentAnswers(settings.port);
  if (!agent) {
    return Platform::unsure(subject, name + " is in use; a host's ping tells whether by an agent");
  }
  return *agent
             ? fine(subject, "an agent answers on " + name)
             : wrong(subject, name + " is in use, and no agent answers on it", Trouble::portTaken);
}

std::string_view wordFor(Verdict verdict) {
  switch (verdict) {
    case Verdict::fine:
      return "fine   ";
    case Verdict::wrong:
      return "WRONG  ";
    default:
      return "unsure ";
  }
}

/// A line for what was seen, and one for what mends it.
std::string row(const Finding& finding) {
  constexpr std::size_t subjectWidth = 20;
  std::string subject(finding.subject);
  subject.resize(std::max(subject.size() + 1, subjectWidth), ' ');
  std::string text(wordFor(finding.verdict));
  text.append("  ").append(subject).append(finding.seen).append("\n");
  if (!finding.remedy.empty()) {
    text.append("         ").append(subjectWidth, ' ').append(finding.remedy).append("\n");
  }
  return text;
}

void print(std::string_view text) {
  writeAll(STDOUT_FILENO, text);
}

void adopt(const Environment& environment) {
  for (const auto& [name, value] : environment) {
    setenv(name.c_str(), value.c_str(), /*overwrite=*/1);
  }
}

}  // namespace

void checkUp(const CheckupSettings& settings, const std::function<void(const Finding&)>& report) {
  for (const auto examine : {Platform::examineInstallation, Platform::examineSession}) {
    const std::vector<Finding> findings = examine();
    std::for_each(findings.begin(), findings.end(), report);
  }
  report(displays());
  report(grant("accessibility", Platform::accessibilityGranted(), Trouble::noAccessibility));
  report(grant("input synthesis", Platform::postEventGranted(), Trouble::noPostEvent));
  report(grant("screen recording", Platform::screenRecordingGranted(), Trouble::noScreenRecording));
  report(picture(settings.patience));
  report(pointer());
  report(shell(settings.shellPath, settings.patience));
  report(port(settings));
}

int runCheckup(bool isReached) try {
  occupyStandardDescriptors();
  Platform::prepareForThreads();
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  adopt(Platform::serviceEnvironment());
  CheckupSettings settings;
  settings.port = choosePort(std::getenv("TERVAIN_AGENT_PORT"));
  settings.isReached = isReached;
  settings.listen = [](std::uint32_t port) { return tervain_vsock_listen(port, 1); };
  settings.agentAnswers = agentAnswers;
  std::array<int, 3> count{};
  checkUp(settings, [&count](const Finding& finding) {
    print(row(finding));
    ++count.at(static_cast<std::size_t>(finding.verdict));
  });
  const auto [fine, wrong, unsure] = count;
  print("\n" + std::to_string(fine) + " fine, " + std::to_string(wrong) + " wrong, " +
        std::to_string(unsure) + " unsure\n");
  return wrong == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& error) {
  print(std::string("the checkup can't go on: ") + error.what() + "\n");
  return EXIT_FAILURE;
}

}  // namespace tervain
