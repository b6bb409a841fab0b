// The conformance run, with an editor.

#include "Desktop/Desktop.h"

namespace tervain::test {
namespace {

TEST_F(DesktopTest, ConformsWithAnEditor) {
  const Ended run = runToEnd({TERVAINCTL_PATH, "conform", "--agent", "unix:" + agent_.socket()}, {},
                             6 * patience);
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* row : {"comes to the front (mousepad)", "and back (featherpad)"}) {
    EXPECT_NE(run.err.find(row), std::string::npos) << run.err;
  }
}

}  // namespace
}  // namespace tervain::test
