// The conformance run, with an editor.

#include "Desktop/Desktop.h"

namespace tervain::test {
namespace {

TEST_F(DesktopTest, ConformsWithAnEditor) {
  const Ended run = runToEnd({TERVAINCTL_PATH, "conform", "--agent", "unix:" + agent_.socket()}, {},
                             6 * patience);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("comes to the front (mousepad)"), std::string::npos) << run.err;
}

}  // namespace
}  // namespace tervain::test
