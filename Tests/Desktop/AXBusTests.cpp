// What happens when the accessibility bus itself goes away. It runs on a desktop that nobody else
// needs afterwards.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>

#include "Desktop/Application.h"
#include "Support/AgentProcess.h"

namespace tervain {
namespace {

constexpr const char* launcher = "/usr/libexec/at-spi-bus-launcher";
constexpr const char* notGranted =
    "Accessibility (kTCCServiceAccessibility) is not granted to the agent — re-run provisioning";

std::vector<pid_t> childrenOf(pid_t pid) {
  const std::string number = std::to_string(pid);
  std::ifstream children("/proc/" + number + "/task/" + number + "/children");
  return {std::istream_iterator<pid_t>(children), std::istream_iterator<pid_t>()};
}

/// The launcher that the desktop has started: our own parent's child.
pid_t desktopLauncher() {
  for (const pid_t pid : childrenOf(getppid())) {
    std::string command;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/cmdline"), command, '\0');
    if (command == launcher) {
      return pid;
    }
  }
  return -1;
}

TEST(AXBus, ItsEndIsToldAndItsReturnIsUsed) {
  const test::AgentProcess agent({.environment = test::desktopEnvironment(), .prefix = {}});
  test::Peer host = agent.connect();
  test::Application before({"zenity", "--entry"});
  ASSERT_TRUE(test::dumpWith(host, before, "AXButton", "OK").is_object());
  const auto footprint = agent.footprint();

  const pid_t pid = desktopLauncher();
  ASSERT_GT(pid, 0);
  kill(pid, SIGSTOP);  // so that it does not answer for a bus that has gone
  for (const pid_t bus : childrenOf(pid)) {
    kill(bus, SIGKILL);
  }
  EXPECT_TRUE(test::eventually(
      [&] { return host.ask(R"({"op":"ax_dump"})").value("error", "") == notGranted; }));
  EXPECT_EQ(host.ask(R"({"op":"ping"})")["readiness"]["accessibility"], false);
  kill(pid, SIGKILL);

  const test::Application again({launcher, "--launch-immediately", "--a11y=1"});
  EXPECT_TRUE(test::eventually(
      [&] { return host.ask(R"({"op":"ping"})")["readiness"]["accessibility"] == true; }));
  test::Application after({"zenity", "--entry"});
  EXPECT_TRUE(test::dumpWith(host, after, "AXButton", "OK").is_object());
  EXPECT_TRUE(agent.footprint().within(footprint)) << testing::PrintToString(agent.footprint());
}

}  // namespace
}  // namespace tervain
