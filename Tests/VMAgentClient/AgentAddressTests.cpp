#include <gtest/gtest.h>

#include <fstream>

#include "Support/TempDir.h"
#include "VMAgentClient/AgentNames.h"

namespace tervain {
namespace {

/// The table that the clients in other languages are held to as well.
TEST(AgentAddress, ReadsWhatNamesAnAgentAndNothingElse) {
  std::ifstream table(ADDRESSES);
  int rows = 0;
  for (std::string line; std::getline(table, line); ++rows) {
    const std::size_t tab = line.find('\t');
    const auto address = parseAgentAddress(line.substr(0, tab));
    EXPECT_EQ(address ? toString(*address) : "none", line.substr(tab + 1)) << line;
    EXPECT_TRUE(!address || parseAgentAddress(toString(*address)) == address) << line;
  }
  EXPECT_GT(rows, 0);
  EXPECT_EQ(parseAgentAddress("unix:a:b"), AgentAddress(UnixAddress{"a:b"}));
  EXPECT_EQ(parseAgentAddress("unix-mux:/v:9"), AgentAddress(MuxAddress{"/v", 9}));
  EXPECT_EQ(parseAgentAddress("vsock:local"), AgentAddress(VsockAddress{}));
}

TEST(AgentNames, AreReadFromTheUsersFile) {
  const test::TempDir dir;
  const Environment environment{{"TERVAIN_AGENTS", dir.path("agents")}, {"HOME", "/elsewhere"}};
  EXPECT_TRUE(readAgents(environment).empty());
  dir.write("agents",
            "# all of them\n\n  mac\tvsock:3 # the first\r\nfar exec:ssh x 'a#b'\nlast unix:/a b");
  const std::vector<NamedAgent> agents{{"mac", VsockAddress{3}},
                                       {"far", ProgramAddress{"ssh x 'a#b'"}},
                                       {"last", UnixAddress{"/a b"}}};
  EXPECT_EQ(readAgents(environment), agents);
  EXPECT_EQ(resolveAgent("mac", environment), agents[0].address);
  EXPECT_EQ(resolveAgent("vsock%4", environment), AgentAddress(VsockAddress{4}));
  EXPECT_THROW(resolveAgent("Mac", environment), NoSuchAgent);
  for (const char* text :
       {"mac", "mac /run/a", "a:b vsock:3", "-a vsock:3", "a vsock:3\na vsock:4"}) {
    EXPECT_THROW(parseAgents(text, "agents"), NoSuchAgent) << text;
  }
  EXPECT_EQ(agentsFile({{"XDG_CONFIG_HOME", "/c"}, {"HOME", "/h"}}), "/c/tervain/agents");
  EXPECT_EQ(agentsFile({{"HOME", "/h"}}), "/h/.config/tervain/agents");
}

}  // namespace
}  // namespace tervain
