// Every call by which the agent gets something from the system fails once, and then for good, at
// each place that a start or a session reaches. What the host sees is the reply as ever, or one
// that the fault accounts for, or the connection's end; and nothing is left behind.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "Faults/FaultInjection.h"
#include "ScriptedPlatform/ScriptedAccessibility.h"
#include "ScriptedPlatform/ScriptedCapture.h"
#include "ScriptedPlatform/ScriptedEvents.h"
#include "ScriptedPlatform/ScriptedLaunch.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/AgentProcess.h"
#include "TervainVMAgent/AgentListener.h"
#include "TervainVMAgent/StartUp.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

using test::Call;
using test::Fault;
using test::Peer;

/// What a host saw, one entry an answer. "closed" ends it.
using Transcript = std::vector<std::string>;

/// Sends requests one after the other and notes the answers.
Transcript ask(Peer& host, std::initializer_list<const char*> requests) {
  Transcript answers;
  for (const std::string request : requests) {
    host.send(request + '\n');
    const auto line = host.readLine();
    if (!line) {
      answers.emplace_back(host.closed() ? "closed" : "hangs");
      break;
    }
    const Json reply = Json::parse(*line, nullptr, false);
    answers.push_back(reply.is_object() ? reply.value("error", *line) : "rubbish");
  }
  return answers;
}

Transcript status(Peer& host) {
  return ask(host,
             {R"({"op":"ping"})", "rubbish", R"({"op":"none"})", R"({"op":"cursor_position"})",
              R"({"op":"click","x":1,"y":2})", R"({"op":"type","text":"é"})"});
}

Transcript accessibility(Peer& host) {
  return ask(host, {R"({"op":"ax_dump"})", R"({"op":"ax_action","ref":"e2","action":"AXPress"})",
                    R"({"op":"ax_element_at","x":1,"y":1})"});
}

Transcript services(Peer& host) {
  return ask(host, {R"({"op":"screenshot"})", R"({"op":"launch_app","name":"Editor"})"});
}

Transcript command(Peer& host) {
  host.send(R"({"op":"exec","command":"cat; echo err >&2; exit 3"})"
            "\n" +
            test::stdinFrame("out") + "{\"t\":\"eof\"}\n");
  const test::ExecResult result = readExec(host);
  if (!result.error.empty()) {
    return {result.error};
  }
  if (!result.code) {
    return {host.closed() ? "closed" : "hangs"};
  }
  const bool whole = result.out == "out" && result.err == "err\n";
  return {"code " + std::to_string(*result.code) + (whole ? "" : ", output lost")};
}

Transcript vanish(Peer& host) {
  host.send("{\"op\":\"exec\",\"command\":\"exec sleep 60\"}\n");
  return {};
}

/// No event may get lost: what the host has not been given must still be there.
Transcript events(Peer& host) {
  const test::TempDir spool;
  const char* const names[] = {"1.jsonl", "2.jsonl", "3.jsonl"};
  for (const char* name : names) {
    spool.write(name, name);
  }
  const Json reply =
      host.ask(Json{{"op", "shell-events"}, {"dir", spool.path()}, {"truncate", true}}.dump());
  const auto left = std::count_if(std::begin(names), std::end(names),
                                  [&](const char* name) { return spool.has(name); });
  if (!reply.is_object()) {
    return {left < std::ssize(names) ? "events lost" : host.closed() ? "closed" : "hangs"};
  }
  return {reply.value("files", 0) + left < std::ssize(names) ? "events lost" : "nothing lost"};
}

using Scene = Transcript (*)(Peer&);
constexpr Scene scenes[] = {status, accessibility, services, command, vanish, events};

/// The answers that a failing call accounts for. Those of a call that no answer depends on, and
/// those of errors that only mean "once more", are none.
struct Row {
  Call call;
  std::vector<int> errors;
  std::vector<std::string> answers = {};
  bool lasting = true;  ///< whether it is tried too that all calls fail from one on
};

const std::string captureFailed = "ScreenCaptureKit capture failed: ";
const std::string launchFailed = "could not launch Editor: ";
const std::string lostOutput = "code 3, output lost";

const Row rows[] = {
    {Call::accept, {EINTR, ECONNABORTED, EMFILE}, {}, false},
    {Call::exitWatch, {ENOSYS, EMFILE}},
    {Call::fcntl, {EINVAL}, {lostOutput}},
    {Call::kill, {EPERM}, {}, false},
    {Call::memory,
     {ENOMEM},
     {"closed", captureFailed + "std::bad_alloc", launchFailed + "std::bad_alloc",
      "screenshot timed out", "could not launch the command (posix_spawn errno 12)"}},
    {Call::open, {EMFILE}},
    {Call::pipe, {EMFILE}, {"could not allocate stdio pipes (errno 24)"}},
    {Call::poll, {EINTR, EAGAIN}, {}, false},
    {Call::poll,
     {ENOMEM},
     {"code -1", "code -1, output lost", "code 137, output lost", lostOutput}},
    {Call::read, {EINTR}, {}, false},
    {Call::read, {EIO, ECONNRESET}, {"closed", lostOutput}},
    {Call::spawn, {EAGAIN}, {"could not launch the command (posix_spawn errno 11)"}},
    {Call::thread, {EAGAIN}, {"closed", captureFailed + "Resource temporarily unavailable"}},
    {Call::waitpid, {EINTR}, {}, false},
    {Call::write, {EINTR}, {}, false},
    {Call::write, {EPIPE, EIO}, {"closed", lostOutput}},
};

/// An agent without its process, serving a Unix socket for good.
class Faults : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::signal(SIGPIPE, SIG_IGN);
    test::spareThisThread();
    setenv("TERVAIN_DULK_DISABLE", "1", 1);
    setScene();
    UniqueFD socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(socket.get(), AgentListener::backlog), 0);
    static AgentListener listener(std::move(socket));
    std::thread([] { listener.run(); }).detach();
  }

  static std::string path() {
    static const test::TempDir dir;
    return dir.path("agent.sock");
  }

  static void setScene() {
    using enum Platform::AXAttribute;
    const auto button = std::make_shared<test::ScriptedElement>();
    button->attributes = {{role, "AXButton"}, {title, "a title that is not short at all"}};
    button->actionNames = {"AXPress"};
    const auto application = std::make_shared<test::ScriptedElement>();
    application->attributes = {
        {role, "AXApplication"},
        {children, Platform::AXElements{{test::handleOf(button), test::handleOf(button)}, 2}}};
    test::scriptedAccessibility() = {{{7, application}}, test::handleOf(button), {}};
    test::scriptedStatus().frontmost = 7;
    test::scriptedStatus().pointer = {1, 2};
    test::scriptedStatus().displays = {{1, 800, 600, true}};
    test::ScriptedCapture capture;
    capture.displays = {{{800, 600}, 1.0F}};
    test::script(capture);
    test::script(test::ScriptedLaunch{[](const std::string&) { return std::nullopt; },
                                      [](const std::string&) { return 0; }});
  }

  /// Plays a scene on a connection of its own and waits until nothing is left of it.
  Transcript play(Scene scene) {
    test::scriptedEvents().posted.clear();
    Transcript seen;
    {
      Peer host = Peer::connect(path());
      seen = scene(host);
    }
    const auto ended = [this] { return test::footprintOf(getpid()).within(baseline_); };
    EXPECT_TRUE(test::eventually(ended, test::patience, std::chrono::microseconds(100)))
        << testing::PrintToString(test::footprintOf(getpid())) << ", at first "
        << testing::PrintToString(baseline_);
    return seen;
  }

  /// Whether what was seen under a fault is in order.
  static bool isDocumented(const Row& row, const Fault& fault, const Transcript& expected,
                           const Transcript& seen) {
    int differences = 0;
    for (std::size_t i = 0; i < seen.size(); ++i) {
      const bool same = i < expected.size() && seen[i] == expected[i];
      differences += same ? 0 : 1;
      if (!same &&
          std::find(row.answers.begin(), row.answers.end(), seen[i]) == row.answers.end()) {
        return false;
      }
    }
    return (fault.lasting || differences <= 1) &&
           (seen.size() == expected.size() || seen.back() == "closed");
  }

  /// Has a call fail at one place after the other, up to where the scene does not get.
  void failEverywhere(const Row& row, Scene scene, Fault fault, const Transcript& expected) {
    for (;; ++fault.first) {
      inject(fault);
      const Transcript seen = play(scene);
      if (!test::withdraw()) {
        return;
      }
      EXPECT_TRUE(isDocumented(row, fault, expected, seen))
          << testing::PrintToString(seen) << " when call " << fault.first
          << (fault.lasting ? " and all later ones fail" : " fails");
      const bool pauses = row.call == Call::accept && fault.error != EINTR;
      EXPECT_TRUE(!pauses || test::longestPause() == std::chrono::seconds(1));
    }
  }

  test::Footprint baseline_ = test::footprintOf(getpid());
};

TEST_F(Faults, EndInADocumentedReplyOrTheConnection) {
  for (const Scene& scene : scenes) {
    play(scene);  // what is made once is made now
    baseline_ = test::footprintOf(getpid());
    const Transcript expected = play(scene);
    for (const Row& row : rows) {
      for (const int error : row.errors) {
        SCOPED_TRACE("scene " + std::to_string(&scene - scenes) + ", row " +
                     std::to_string(&row - rows) + ", errno " + std::to_string(error));
        failEverywhere(row, scene, {row.call, error, 1, false}, expected);
        if (row.lasting) {
          failEverywhere(row, scene, {row.call, error, 1, true}, expected);
        }
      }
    }
    EXPECT_EQ(play(scene), expected);
  }
}

struct Start {
  int status;  ///< of the process; 0 when the agent has started
  bool hit;    ///< whether a call failed
  std::string log;
};

/// Starts an agent in a process of its own.
Start start(const Fault& fault) {
  constexpr int missed = 100;  // added to the status when no call failed
  System::Pipe log = System::makePipe();
  const pid_t child = fork();
  if (child == 0) {
    dup2(log.writeEnd.get(), STDERR_FILENO);
    test::scriptedStatus().mainLoop = [] { _exit(test::withdraw() ? 0 : missed); };
    inject(fault);
    const int status = runAgent();
    _exit(test::withdraw() ? status : status + missed);
  }
  log.writeEnd.reset();
  std::string text(4096, '\0');
  std::size_t length = 0;
  while (const auto n = readSome(log.readEnd.get(), std::span(text).subspan(length))) {
    length += static_cast<std::size_t>(n);
  }
  int status = 0;
  waitpid(child, &status, 0);
  status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return {status % missed, status < missed, text.substr(0, length)};
}

TEST(StartUpFaults, EndInTheFatalLineIfTheyMatter) {
  setenv("TERVAIN_AGENT_PORT", std::to_string(30'000 + getpid() % 30'000).c_str(), 1);
  for (const auto& [call, error] :
       {std::pair(Call::socket, ENODEV), std::pair(Call::bind, EADDRINUSE),
        std::pair(Call::listen, EOPNOTSUPP), std::pair(Call::thread, EAGAIN),
        std::pair(Call::memory, ENOMEM), std::pair(Call::fcntl, EINVAL),
        std::pair(Call::open, EMFILE), std::pair(Call::write, EIO)}) {
    for (const bool lasting : {false, true}) {
      Fault fault{call, error, 1, lasting};
      for (Start seen = start(fault); seen.hit; ++fault.first, seen = start(fault)) {
        SCOPED_TRACE("call " + std::to_string(fault.first) + " of the " +
                     std::to_string(static_cast<int>(call)) + "th, errno " + std::to_string(error));
        EXPECT_TRUE(seen.status == EXIT_SUCCESS || seen.status == EXIT_FAILURE) << seen.status;
        const bool fatal = seen.log.find("[TervainVMAgent] FATAL: ") != std::string::npos;
        EXPECT_TRUE(fatal == (seen.status == EXIT_FAILURE) || call == Call::write) << seen.log;
      }
    }
  }
}

}  // namespace
}  // namespace tervain
