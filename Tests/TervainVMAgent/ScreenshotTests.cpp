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
using test::HandlerConnection;
using test::script;
using test::ScriptedCapture;

Json failure(const std::string& error) {
  return {{"ok", false}, {"error", error}};
}

Json ask(const std::string& members = "", const OperationSettings& settings = {}) {
  HandlerConnection connection(settings);
  return connection.host.ask(R"({"op":"screenshot")" + members + "}");
}

/// Waits no longer than a hung capture needs to be told from a prompt one.
OperationSettings impatient() {
  OperationSettings settings;
  settings.screenshotLimit = std::chrono::milliseconds(50);
  return settings;
}

const std::vector<ScriptedCapture::Display> threeDisplays = {
    {{1440, 900}, 2.0F}, {{1000.9, 500.6}, 1.5F}, {{800, 600}, 1.0F}};

class ScreenshotTest : public testing::Test {
 protected:
  void TearDown() override {
    script(ScriptedCapture{});
    test::scriptedStatus() = {};
  }
};

TEST_F(ScreenshotTest, RepliesWithThePictureAndItsOwnSize) {
  ScriptedCapture capture;
  capture.displays = threeDisplays;
  capture.jpeg = std::string("\xff\xd8\xff\0\xfe", 5);
  capture.missingRows = 10;
  script(capture);
  EXPECT_EQ(ask(), Json::parse(R"({"ok":true,"image":"/9j/AP4=","format":"jpeg","width":2880,
                                   "height":1790,"scale":2.0})"));
}

TEST_F(ScreenshotTest, AsksForWholePixelsOfTheChosenDisplay) {
  const AskedCapture first{0, 2880, 1800, 0.7};
  const AskedCapture second{1, 1501, 750, 0.7};
  const struct {
    const char* members;
    AskedCapture asked;
  } cases[] = {
      {"", first},
      {R"(,"display":0)", first},
      {R"(,"display":1)", second},
      {R"(,"display":1.0)", second},
      {R"(,"display":true)", second},
      {R"(,"display":2)", {2, 800, 600, 0.7}},
      {R"(,"display":3)", first},
      {R"(,"display":-1)", first},
      {R"(,"display":9223372036854775807)", first},
      {R"(,"display":-9223372036854775808)", first},
      {R"(,"display":1e300)", first},
      {R"(,"display":"1")", first},
      {R"(,"display":1.5)", first},
      {R"(,"display":null)", first},
      {R"(,"display":[1])", first},
  };
  ScriptedCapture capture;
  capture.displays = threeDisplays;
  script(capture);
  for (const auto& c : cases) {
    ASSERT_TRUE(ask(c.members).value("ok", false)) << c.members;
    EXPECT_EQ(test::lastCapture(), c.asked) << c.members;
  }
}

TEST_F(ScreenshotTest, SaysWhatFailed) {
  ScriptedCapture good;
  good.displays = threeDisplays;
  const struct {
    void (*spoil)(ScriptedCapture&);
    const char* error;
  } cases[] = {
      {[](ScriptedCapture& c) { c.listError = "no “service”"; },
       "ScreenCaptureKit capture failed: no “service”"},
      {[](ScriptedCapture& c) { c.captureError = "busy"; },
       "ScreenCaptureKit capture failed: busy"},
      {[](ScriptedCapture& c) { c.displays.clear(); }, "no shareable displays"},
      {[](ScriptedCapture& c) { c.jpeg.reset(); }, "JPEG encoding failed"},
      {[](ScriptedCapture& c) { c.beforeAnswer = [] { throw std::runtime_error("worn out"); }; },
       "ScreenCaptureKit capture failed: worn out"},
      {[](ScriptedCapture& c) { c.beforeAnswer = [] { throw 1; }; }, "screenshot timed out"},
  };
  for (const auto& c : cases) {
    ScriptedCapture capture = good;
    c.spoil(capture);
    script(capture);
    EXPECT_EQ(ask(), failure(c.error));
  }
  test::scriptedStatus().screenRecording = false;
  EXPECT_EQ(ask(), failure("Screen Recording (kTCCServiceScreenCapture) is not granted to the agent"
                           " — re-run provisioning"));
}

TEST_F(ScreenshotTest, GivesUpOnACaptureThatHangsAndDropsItsLateResult) {
  auto release = std::make_shared<std::latch>(1);
  auto ended = std::make_shared<std::latch>(1);
  ScriptedCapture capture;
  capture.displays = threeDisplays;
  capture.beforeAnswer = [release, ended] {
    release->wait();
    ended->count_down();
  };
  script(capture);
  {
    HandlerConnection connection(impatient());
    EXPECT_EQ(connection.host.ask(R"({"op":"screenshot"})"), failure("screenshot timed out"));
    // The connection lives on, and others capture meanwhile.
    EXPECT_TRUE(connection.host.ask(R"({"op":"ping"})").value("ok", false));
    capture.beforeAnswer = nullptr;
    script(capture);
    EXPECT_TRUE(ask().value("ok", false));
  }
  release->count_down();
  ended->wait();
}

TEST_F(ScreenshotTest, BoundsTheCapturesThatHang) {
  auto release = std::make_shared<std::latch>(1);
  auto hung = std::make_shared<std::atomic<std::size_t>>(0);
  ScriptedCapture capture;
  capture.displays = threeDisplays;
  capture.beforeAnswer = [release, hung] {
    ++*hung;
    release->wait();
  };
  script(capture);
  for (std::size_t i = 0; i < Errands::maxRunning + 3; ++i) {
    EXPECT_EQ(ask("", impatient()), failure("screenshot timed out"));
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
