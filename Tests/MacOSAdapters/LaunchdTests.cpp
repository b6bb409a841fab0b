#include <gtest/gtest.h>

#include "Platform/macOS/Launchd.h"

namespace tervain::Platform {
namespace {

TEST(Launchd, ReadsAJobAndNotWhatIsNestedInIt) {
  const LaunchdJob job = parseLaunchdJob(
      "gui/501/com.tervain.vmagent = {\n\tactive count = 1\n\tstate = running\n\n"
      "\targuments = {\n\t\t--log\n\t\ta => b\n\t}\n\n"
      "\tinherited environment = {\n\t\tPATH => /bin\n\t}\n\n"
      "\tenvironment = {\n\t\tPATH => /usr/bin:/bin\n\t\tMARK => a => b = {\n\t}\n\n"
      "\tpid = 733\n\tlast exit code = 78: EX_CONFIG\n\n"
      "\tresource coalition = {\n\t\tstate = active\n\t\tpid = 1\n\t}\n}\n");
  EXPECT_EQ(job.state, "running");
  EXPECT_EQ(job.pid, 733);
  EXPECT_EQ(job.lastExit, "78: EX_CONFIG");
  EXPECT_EQ(job.environment, (Environment{{"PATH", "/usr/bin:/bin"}, {"MARK", "a => b = {"}}));
  EXPECT_EQ(parseLaunchdJob("\tstate = waiting\n}").pid, std::nullopt);
}

}  // namespace
}  // namespace tervain::Platform
