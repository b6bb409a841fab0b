// What happens when the accessibility bus itself goes away. It runs on a desktop that nobody else
// needs afterwards.

#include <unistd.h>

#include <csignal>
#include <optional>

#include "Desktop/Desktop.h"

namespace tervain::test {
namespace {

constexpr const char* launcher = "/usr/libexec/at-spi-bus-launcher";

/// The launcher that the desktop has started: our own parent's child.
pid_t desktopLauncher() {
  for (const pid_t pid : childrenOf(getppid())) {
    if (textOf("/proc/" + std::to_string(pid) + "/cmdline").starts_with(launcher)) {
      return pid;
    }
  }
  return -1;
}

TEST_F(DesktopTest, TheEndOfTheAccessibilityBusIsToldAndItsReturnIsUsed) {
  const auto ready = [&] { return perform("ping")["readiness"]["accessibility"] == true; };
  std::optional<Program> before(std::in_place, std::vector<std::string>{"zenity", "--entry"});
  ASSERT_TRUE(awaitNode(host_, *before, "AXButton", "OK").is_object());
  const auto footprint = agent_.footprint();
  const pid_t pid = desktopLauncher();
  ASSERT_GT(pid, 0);
  kill(pid, SIGSTOP);  // so that it does not answer for a bus that has gone
  for (const pid_t bus : childrenOf(pid)) {
    kill(bus, SIGKILL);
  }
  EXPECT_TRUE(eventually([&] {
    return perform("ax_dump")["error"] ==
           "Accessibility (kTCCServiceAccessibility) is not granted to the agent — re-run "
           "provisioning";
  }));
  EXPECT_FALSE(ready());
  kill(pid, SIGKILL);

  const Program again({launcher, "--launch-immediately", "--a11y=1"});
  EXPECT_TRUE(eventually(ready));
  before.reset();  // and with it the connection to it
  const Program after({"zenity", "--entry"});
  EXPECT_TRUE(awaitNode(host_, after, "AXButton", "OK").is_object());
  EXPECT_TRUE(eventually([&] { return agent_.footprint().within(footprint); }))
      << testing::PrintToString(agent_.footprint());
}

}  // namespace
}  // namespace tervain::test
