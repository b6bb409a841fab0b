#include <gtest/gtest.h>

#include <filesystem>
#include <latch>
#include <stdexcept>

#include "ScriptedPlatform/ScriptedLaunch.h"
#include "Support/HandlerConnection.h"
#include "Support/TempDir.h"
#include "TervainVMAgent/Errands.h"

namespace tervain {
namespace {

using Platform::LaunchError;
using test::HandlerConnection;

Json failure(const std::string& error) {
  return {{"ok", false}, {"error", error}};
}

const Json success = {{"ok", true}};

/// Three folders of bundles that stand in for the system's.
class LaunchTest : public testing::Test {
 protected:
  LaunchTest() {
    for (const char* folder : {"first/", "second/", "third/"}) {
      folders_.push_back(dir_.path(folder));
      std::filesystem::create_directory(folders_.back());
    }
    views_.assign(folders_.begin(), folders_.end());
    settings_.applicationFolders = views_;
    settings_.launchLimit = std::chrono::seconds(15);
  }

  void TearDown() override { test::script(test::ScriptedLaunch{}); }

  [[nodiscard]] Json ask(const Json& name) const {
    HandlerConnection connection(settings_);
    return connection.host.ask(Json{{"op", "launch_app"}, {"name", name}}.dump());
  }

  test::TempDir dir_;
  std::vector<std::string> folders_;
  std::vector<std::string_view> views_;
  OperationSettings settings_;
};

TEST_F(LaunchTest, OpensTheFirstBundleThereIsAndElseTheName) {
  for (const char* bundle : {"first/Both.app", "third/Both.app", "second/Safari.app",
                             "third/Terminal.app", "third/Two Words.app", "first/.app"}) {
    std::filesystem::create_directory(dir_.path(bundle));
  }
  dir_.write("second/File.app", "");
  const struct {
    std::string name;
    std::string opened;
  } cases[] = {
      {"Both", dir_.path("first/Both.app")},
      {"Safari.app", dir_.path("second/Safari.app")},
      {"Terminal", dir_.path("third/Terminal.app")},
      {"Two Words", dir_.path("third/Two Words.app")},
      {"File", dir_.path("second/File.app")},
      {".app", dir_.path("first/.app")},
      {"Safari.APP", "named Safari.APP"},
      {"Safari.app.app", "named Safari.app.app"},
      {"Foo", "named Foo"},
      {"-a", "named -a"},
      {"Ünï \"x\"", "named Ünï \"x\""},
      {std::string("Safari.app\0", 11), std::string("named Safari.app\0", 17)},
  };
  auto opened = std::make_shared<std::string>();
  test::script({[=](const std::string& path) -> std::optional<LaunchError> {
                  *opened = path;
                  return {};
                },
                [=](const std::string& name) {
                  *opened = "named " + name;
                  return 0;
                }});
  for (const auto& c : cases) {
    EXPECT_EQ(ask(c.name), success) << c.name;
    EXPECT_EQ(*opened, c.opened);
  }
}

TEST_F(LaunchTest, SaysWhatFailed) {
  std::filesystem::create_directory(dir_.path("first/Bundle.app"));
  test::script({[](const std::string&) { return LaunchError{"damaged"}; },
                [](const std::string& name) -> std::variant<int, LaunchError> {
                  if (name == "unusable") {
                    return LaunchError{"no such command"};
                  }
                  if (name == "throws") {
                    throw std::runtime_error("out of pipes");
                  }
                  return name == "Foo" ? 1 : -9;
                }});
  const char* const wantsName = "launch_app requires a non-empty \"name\"";
  const struct {
    Json name;
    std::string error;
  } cases[] = {
      {nullptr, wantsName},
      {"", wantsName},
      {5, wantsName},
      {Json::array({"Foo"}), wantsName},
      {"Bundle", "could not launch Bundle: damaged"},
      {"Bundle.app", "could not launch Bundle.app: damaged"},
      {"unusable", "could not launch unusable: no such command"},
      {"throws", "could not launch throws: out of pipes"},
      {"Foo", "no application named \"Foo\" (open -a exited 1)"},
      {"Bar\"", "no application named \"Bar\"\" (open -a exited -9)"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ask(c.name), failure(c.error));
  }
  test::script({[](const std::string&) -> std::optional<LaunchError> {
                  throw std::runtime_error("out of threads");
                },
                {}});
  EXPECT_EQ(ask("Bundle"), failure("could not launch Bundle: out of threads"));
}

TEST_F(LaunchTest, TakesASystemThatDoesNotAnswerForOneThatIsLaunching) {
  std::filesystem::create_directory(dir_.path("first/Slow.app"));
  settings_.launchLimit = std::chrono::milliseconds(50);
  auto release = std::make_shared<std::latch>(1);
  test::script({[release](const std::string&) {
                  release->wait();
                  return LaunchError{"too late to tell"};
                },
                {}});
  for (std::size_t i = 0; i < Errands::maxRunning; ++i) {
    EXPECT_EQ(ask("Slow"), success);
  }
  // What was never handed to the system is no launch.
  EXPECT_EQ(ask("Slow"),
            failure("could not launch Slow: the system has not answered earlier launches yet"));
  release->count_down();
  settings_.launchLimit = test::patience;
  EXPECT_EQ(ask("Slow"), failure("could not launch Slow: too late to tell"));
}

}  // namespace
}  // namespace tervain
