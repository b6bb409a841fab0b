#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>

#include "ScriptedPlatform/ScriptedCapture.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"
#include "TervainVMAgent/Errands.h"

namespace tervain {
namespace {

using test::AskedCapture;
using test::failure;
using test::HandlerConnection;
using test::script;
using test::ScriptedCapture;

Json ask(const std::string& members = "", const OperationSettings& settings = {}) {
  HandlerConnection connection(settings);
  return connection.host.ask(R"({"op":"screenshot")" + members + "}");
}

/// The script is one that works, until a test spoils it.
class ScreenshotTest : public testing::Test {
 protected:
  ScreenshotTest() {
    capture_.displays = {{{1440, 900}, 2.0F}, {{1000.9, 500.6}, 1.5F}, {{800, 600}, 1.0F}};
    script(capture_);
  }
  void TearDown() override {
    script(ScriptedCapture{});
    test::scriptedStatus() = {};
  }

  ScriptedCapture capture_;
};

TEST_F(ScreenshotTest, RepliesWithThePictureOfTheChosenDisplay) {
  const AskedCapture first{0, 2880, 1800, 0.7};
  const AskedCapture second{1, 1501, 750, 0.7};  // whole pixels
  const std::pair<const char*, AskedCapture> cases[] = {{"", first},
                                                        {R"(,"display":1)", second},
                                                        {R"(,"display":true)", second},
                                                        {R"(,"display":2)", {2, 800, 600, 0.7}},
                                                        {R"(,"display":3)", first},
                                                        {R"(,"display":-1)", first},
                                                        {R"(,"display":1e300)", first}};
  for (const auto& [members, asked] : cases) {
    ASSERT_TRUE(ask(members).value("ok", false)) << members;
    EXPECT_EQ(test::lastCapture(), asked) << members;
  }
  capture_.jpeg = std::string("\xff\xd8\xff\0\xfe", 5);
  capture_.missingRows = 10;
  script(capture_);
  EXPECT_EQ(ask(), Json::parse(R"({"ok":true,"image":"/9j/AP4=","format":"jpeg","width":2880,
                                   "height":1790,"scale":2.0})"));
}

TEST_F(ScreenshotTest, SaysWhatFailed) {
  const std::pair<void (*)(ScriptedCapture&), const char*> cases[] = {
      {[](ScriptedCapture& c) { c.listError = "no “service”"; },
       "ScreenCaptureKit capture failed: no “service”"},
      {[](ScriptedCapture& c) { c.captureError = "busy"; },
       "ScreenCaptureKit capture failed: busy"},
      {[](ScriptedCapture& c) { c.listTimesOut = true; }, "screenshot timed out"},
      {[](ScriptedCapture& c) { c.captureTimesOut = true; }, "screenshot timed out"},
      {[](ScriptedCapture& c) { c.displays.clear(); }, "no shareable displays"},
      {[](ScriptedCapture& c) { c.jpeg.reset(); }, "JPEG encoding failed"},
      {[](ScriptedCapture& c) { c.beforeAnswer = [] { throw std::runtime_error("worn out"); }; },
       "ScreenCaptureKit capture failed: worn out"},
      {[](ScriptedCapture& c) { c.beforeAnswer = [] { throw 1; }; }, "screenshot timed out"},
  };
  for (const auto& [spoil, error] : cases) {
    ScriptedCapture spoilt = capture_;
    spoil(spoilt);
    script(spoilt);
    EXPECT_EQ(ask(), failure(error));
  }
  test::scriptedStatus().screenRecording = false;
  EXPECT_EQ(ask(), failure("Screen Recording (kTCCServiceScreenCapture) is not granted to the agent"
                           " — re-run provisioning"));
}

TEST_F(ScreenshotTest, GivesUpOnCapturesThatHangAndBoundsThem) {
  OperationSettings impatient;
  impatient.screenshotLimit = std::chrono::milliseconds(50);
  auto release = std::make_shared<std::latch>(1);
  auto hung = std::make_shared<std::atomic<std::size_t>>(0);
  const ScriptedCapture good = capture_;
  capture_.beforeAnswer = [release, hung] {
    ++*hung;
    release->wait();
  };
  script(capture_);
  HandlerConnection connection(impatient);
  EXPECT_EQ(connection.host.ask(R"({"op":"screenshot"})"), failure("screenshot timed out"));
  // The connection lives on, and others capture meanwhile.
  EXPECT_TRUE(connection.host.ask(R"({"op":"ping"})").value("ok", false));
  script(good);
  EXPECT_TRUE(ask().value("ok", false));

  script(capture_);
  for (std::size_t i = 0; i < Errands::maxRunning + 2; ++i) {
    const auto start = Clock::now();
    EXPECT_EQ(ask("", impatient), failure("screenshot timed out"));
    EXPECT_GE(Clock::now() - start, impatient.screenshotLimit) << "waits for a place";
  }
  EXPECT_TRUE(test::eventually([&] { return *hung == Errands::maxRunning; })) << *hung;
  // One that waits for a place gets its picture as soon as the service is back.
  HandlerConnection waiting;
  waiting.host.send("{\"op\":\"screenshot\"}\n");
  release->count_down();
  EXPECT_TRUE(waiting.host.readJson().value("ok", false));
}

}  // namespace
}  // namespace tervain
