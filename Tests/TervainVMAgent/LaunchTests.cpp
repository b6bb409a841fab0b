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
using test::failure;

const Json success = {{"ok", true}};

/// Three folders of bundles that stand in for the system's.
class LaunchTest : public testing::Test {
 protected:
  LaunchTest() {
    for (const char* bundle :
         {"1/Both.app", "3/Both.app", "2/Safari.app", "3/Two Words.app", "2/Net.apple.app"}) {
      std::filesystem::create_directories(dir_.path(bundle));
    }
    dir_.write("2/File.app", "");
    settings_.applicationFolders = views_;
    settings_.launchLimit = std::chrono::seconds(15);
  }

  void TearDown() override { test::script(test::ScriptedLaunch{}); }

  [[nodiscard]] Json ask(const Json& name) const {
    test::HandlerConnection connection(settings_);
    return connection.host.ask(Json{{"op", "launch_app"}, {"name", name}}.dump());
  }

  test::TempDir dir_;
  std::vector<std::string> folders_{dir_.path("1/"), dir_.path("2/"), dir_.path("3/")};
  std::vector<std::string_view> views_{folders_.begin(), folders_.end()};
  OperationSettings settings_;
};

TEST_F(LaunchTest, OpensTheFirstBundleThereIsAndElseTheName) {
  const std::pair<std::string, std::string> cases[] = {{"Both", dir_.path("1/Both.app")},
                                                       {"Safari.app", dir_.path("2/Safari.app")},
                                                       {"Net.apple", dir_.path("2/Net.apple.app")},
                                                       {"Two Words", dir_.path("3/Two Words.app")},
                                                       {"File", dir_.path("2/File.app")},
                                                       {"Safari.APP", "named Safari.APP"},
                                                       {"Safari.app.app", "named Safari.app.app"},
                                                       {"-a", "named -a"},
                                                       {"Ünï \"x\"", "named Ünï \"x\""}};
  auto opened = std::make_shared<std::string>();
  test::script({[=](const std::string& path) -> std::optional<LaunchError> {
                  *opened = path;
                  return {};
                },
                [=](const std::string& name) {
                  *opened = "named " + name;
                  return 0;
                }});
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(ask(name), success) << name;
    EXPECT_EQ(*opened, expected);
  }
}

TEST_F(LaunchTest, SaysWhatFailed) {
  test::script({[](const std::string& path) {
                  return path.ends_with("File.app") ? throw std::runtime_error("out of threads")
                                                    : LaunchError{"damaged"};
                },
                [](const std::string& name) -> std::variant<int, LaunchError> {
                  if (name == "unusable") {
                    return LaunchError{"no such command"};
                  }
                  return name == "throws" ? throw std::runtime_error("out of pipes") : -9;
                }});
  const std::pair<Json, std::string> cases[] = {
      {"Both", "could not launch Both: damaged"},
      {"Safari.app", "could not launch Safari.app: damaged"},
      {"File", "could not launch File: out of threads"},
      {"unusable", "could not launch unusable: no such command"},
      {"throws", "could not launch throws: out of pipes"},
      {"Foo\"", "no application named \"Foo\"\" (open -a exited -9)"},
      {std::string("Both.app\0x", 10),
       std::string("no application named \"Both.app\0x\" (open -a exited 1)", 52)}};
  for (const auto& [name, error] : cases) {
    EXPECT_EQ(ask(name), failure(error));
  }
}

TEST_F(LaunchTest, TakesASystemThatDoesNotAnswerForOneThatIsLaunching) {
  settings_.launchLimit = std::chrono::milliseconds(50);
  auto release = std::make_shared<std::latch>(1);
  test::script({[release](const std::string&) {
                  release->wait();
                  return LaunchError{"too late to tell"};
                },
                {}});
  for (std::size_t i = 0; i < Errands::maxRunning; ++i) {
    EXPECT_EQ(ask("Both"), success);
  }
  // What was never handed to the system is no launch.
  EXPECT_EQ(ask("Both"),
            failure("could not launch Both: the system has not answered earlier launches yet"));
  release->count_down();
  settings_.launchLimit = test::patience;
  EXPECT_EQ(ask("Both"), failure("could not launch Both: too late to tell"));
}

}  // namespace
}  // namespace tervain
