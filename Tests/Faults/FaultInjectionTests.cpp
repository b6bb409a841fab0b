// Every call by which the agent gets something from the system fails once, and then for good, at
// each place that a start or a session reaches. What the host sees is the reply as ever, or one
// that the fault accounts for, or the connection's end; and nothing is left behind.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "Faults/FaultInjection.h"
#include "ScriptedPlatform/ScriptedEvents.h"
#include "Support/AgentProcess.h"
#include "Support/ScriptedDesktop.h"
#include "TervainVMAgent/AgentListener.h"
#include "TervainVMAgent/StartUp.h"
#include "VMAgentCore/NeverDestroyed.h"

namespace tervain {
namespace {

using test::Call;
using test::Fault;
using test::Peer;

/// What a host saw, one entry an answer. "closed" ends it.
using Transcript = std::vector<std::string>;

std::string endSeenBy(Peer& host) {
  return host.closed() ? "closed" : "hangs";
}

Transcript requests(Peer& host) {
  Transcript answers;
  for (const std::string request :
       {R"({"op":"ping"})", "rubbish", R"({"op":"click","x":1,"y":2})",
        R"({"op":"type","text":"é"})", R"({"op":"ax_dump"})",
        R"({"op":"ax_action","ref":"e2","action":"AXPress"})",
        R"({"op":"ax_element_at","x":1,"y":1})", R"({"op":"screenshot"})",
        R"({"op":"launch_app","name":"Editor"})"}) {
    const Json reply = host.ask(request);
    if (reply.is_null()) {
      answers.push_back(endSeenBy(host));
      break;
    }
    answers.push_back(reply.is_object() ? reply.value("error", reply.dump()) : "rubbish");
  }
  return answers;
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
    return {endSeenBy(host)};
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
  for (const char* name : {"1.jsonl", "2.jsonl", "3.jsonl"}) {
    spool.write(name, name);
  }
  const Json reply =
      host.ask(Json{{"op", "shell-events"}, {"dir", spool.path()}, {"truncate", true}}.dump());
  const auto left = std::distance(std::filesystem::directory_iterator(spool.path()), {});
  if ((reply.is_object() ? reply.value("files", 0) : 0) + left < 3) {
    return {"events lost"};
  }
  return {reply.is_object() ? "nothing lost" : endSeenBy(host)};
}

using Scene = Transcript (*)(Peer&);
constexpr Scene scenes[] = {requests, command, vanish, events};

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
    test::scriptDesktop();
    static NeverDestroyed<AgentListener> listener(test::listenAt(path()));
    // A std::thread would hold memory that nothing refers to any more, as the listener never
    // returns.
    pthread_t thread{};
    const auto serve = [](void*) -> void* { listener->run(); };
    ASSERT_EQ(pthread_create(&thread, nullptr, serve, nullptr), 0);
    pthread_detach(thread);
  }

  static std::string path() {
    static const test::TempDir dir;
    return dir.path("agent.sock");
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
      // The listener's own thread may be on its way there yet.
      const auto paused = [] { return test::longestPause() == std::chrono::seconds(1); };
      EXPECT_TRUE(!pauses || test::eventually(paused));
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
  const test::TempDir dir;
  dir.write("log", "");
  const pid_t child = fork();
  if (child == 0) {
    static_cast<void>(std::freopen(dir.path("log").c_str(), "a", stderr));
    test::scriptedStatus().mainLoop = [] { _exit(test::withdraw() ? 0 : missed); };
    inject(fault);
    const int status = runAgent();
    _exit(test::withdraw() ? status : status + missed);
  }
  int status = 0;
  waitpid(child, &status, 0);
  status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return {status % missed, status < missed, test::textOf(dir.path("log"))};
}

TEST(StartUp, LogsEachGrantByItsName) {
  using test::ScriptedStatus;
  const std::pair<bool ScriptedStatus::*, const char*> grants[] = {
      {&ScriptedStatus::accessibility, "accessibility=false screenRecording=true postEvent=true"},
      {&ScriptedStatus::screenRecording, "accessibility=true screenRecording=false postEvent=true"},
      {&ScriptedStatus::postEvent, "accessibility=true screenRecording=true postEvent=false"}};
  for (const auto& [grant, line] : grants) {
    test::scriptedStatus().*grant = false;
    EXPECT_NE(start({Call::kill, 0}).log.find(line), std::string::npos) << line;
    test::scriptedStatus().*grant = true;
  }
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
        const bool hints =
            seen.log.find(
                ") failed: No such device — is this running inside a macOS "
                "guest VM? (AF_VSOCK fails ENODEV on a host)\n") != std::string::npos;
        EXPECT_EQ(hints, call == Call::socket) << seen.log;
      }
    }
  }
}

}  // namespace
}  // namespace tervain
