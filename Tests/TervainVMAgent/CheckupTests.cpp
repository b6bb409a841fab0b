#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <latch>

#include "ScriptedPlatform/ScriptedCapture.h"
#include "ScriptedPlatform/ScriptedCheckup.h"
#include "ScriptedPlatform/ScriptedEvents.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/Deadline.h"
#include "Support/TempDir.h"
#include "TervainVMAgent/Checkup.h"

namespace tervain {
namespace {

using Platform::Finding;
using Platform::Verdict;
using test::scriptedStatus;

/// A guest in which nothing is wrong, until a test spoils it.
class CheckupTest : public testing::Test {
 protected:
  CheckupTest() {
    scriptedStatus().displays = {{1, 1440, 900, true}};
    scriptedStatus().pointer = {{5, 7}};
    capture_.displays = {{{1440, 900}, 2.0F}};
    settings_.shellPath = "/bin/sh";
    settings_.listen = [](std::uint32_t) { return -EADDRINUSE; };
    settings_.agentAnswers = [](std::uint32_t port) { return port == 2035; };
    settings_.patience = test::patience;
    // The pointer goes where the last event sends it.
    test::scriptedEvents().onPost = [this](const std::string& line) {
      double x = 0;
      if (pointerMoves_ && std::sscanf(line.c_str(), "moved %lf", &x) == 1) {
        scriptedStatus().pointer->x = x;
      }
    };
  }
  void TearDown() override {
    scriptedStatus() = {};
    test::scriptedEvents() = {};
    test::scriptedFindings().clear();
    test::script(test::ScriptedCapture{});
  }

  /// What is not fine, as "subject: what was seen", a line each.
  std::string complaints() {
    test::script(capture_);
    std::string text;
    checkUp(settings_, [&text](const Finding& finding) {
      EXPECT_EQ(finding.verdict == Verdict::wrong, finding.remedy == "mend it") << finding.subject;
      if (finding.verdict != Verdict::fine) {
        text.append(finding.subject).append(": ").append(finding.seen).append("\n");
      }
    });
    return text;
  }

  test::ScriptedCapture capture_;
  CheckupSettings settings_;
  bool pointerMoves_ = true;
};

TEST_F(CheckupTest, FindsWhatIsWrong) {
  EXPECT_EQ(complaints(), "");
  EXPECT_EQ(scriptedStatus().pointer->x, 5);
  // One after the other, each on top of those before.
  const struct {
    std::function<void()> spoil;
    const char* complaint;
  } cases[] = {
      {[] {
         test::scriptedFindings() = {{Verdict::wrong, "session", "none", "mend it"}};
       },
       "session: none\n"},
      {[this] { capture_.otherColours = 160; }, "picture: 1440x900 pixels of one colour\n"},
      {[this] { capture_.captureError = "no service"; }, "picture: no service\n"},
      {[this] { capture_.listError = "no list"; }, "picture: no list\n"},
      {[this] { capture_.listError.clear(), capture_.displays.clear(); },
       "picture: no display can be captured\n"},
      {[] { scriptedStatus().screenRecording = false; },
       "screen recording: not granted\npicture: not tried: the grant is missing\n"},
      {[this] { pointerMoves_ = false; }, "pointer: does not move\n"},
      {[] { scriptedStatus().pointer.reset(); }, "pointer: nobody tells where it is\n"},
      {[] { scriptedStatus().postEvent = false; },
       "input synthesis: not granted\nscreen recording: not granted\n"
       "picture: not tried: the grant is missing\npointer: not tried: the grant is missing\n"},
      {[this] { settings_.shellPath = "/nowhere/dulk"; }, "shell: /nowhere/dulk is not there\n"},
      {[this] { settings_.shellPath = "/bin/false"; }, "shell: /bin/false exits 1 and says \"\"\n"},
      {[this] { settings_.port = 2036; },
       "port: vsock port 2036 is in use, and no agent answers on it\n"},
      {[this] { settings_.agentAnswers = [](std::uint32_t) { return std::nullopt; }; },
       "port: vsock port 2036 is in use; a host's ping tells"},
      {[this] { settings_.listen = [](std::uint32_t) { return dup(STDIN_FILENO); }; },
       "port: nobody listens on vsock port 2036\n"},
      {[this] { settings_.listen = [](std::uint32_t) { return -ENODEV; }; },
       "port: vsock port 2036 failed: No such device\n"},
      {[] { scriptedStatus().displays.clear(); }, "displays: there is none\n"},
      {[] { scriptedStatus().accessibility = false; }, "accessibility: not granted\n"},
  };
  for (const auto& [spoil, complaint] : cases) {
    spoil();
    EXPECT_NE(complaints().find(complaint), std::string::npos) << complaint << "\n" << complaints();
  }
}

TEST_F(CheckupTest, WaitsForNothingForGood) {
  settings_.patience = std::chrono::milliseconds(200);
  auto release = std::make_shared<std::latch>(1);
  capture_.beforeAnswer = [release] { release->wait(); };
  for (const char* script : {"#!/bin/sh\nsleep 60\n", "#!/bin/sh\nexec >&- 2>&-; sleep 60\n"}) {
    const test::TempDir dir;
    dir.write("hangs", script);
    settings_.shellPath = dir.path("hangs");
    std::filesystem::permissions(settings_.shellPath, std::filesystem::perms::owner_all);
    EXPECT_EQ(complaints(), "picture: none in time\nshell: " + settings_.shellPath +
                                " does not come to an end\n");
  }
  release->count_down();
}

}  // namespace
}  // namespace tervain
