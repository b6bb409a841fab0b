#include <gtest/gtest.h>

#include "VMAgentClient/GuestTerminal.h"
#include "VMAgentClient/SshCommandLine.h"

namespace tervain {
namespace {

using Words = std::vector<std::string>;

TEST(SshCommandLine, IsReadAsSshDoes) {
  using enum SshCommandLine::Terminal;
  const Environment environment{{"GIT_PROTOCOL", "version=2"}, {"LC_ALL", "C"}};
  const struct {
    Words arguments;
    SshCommandLine expected;
  } cases[]{
      {{"-p22", "-i", "key", "mac", "-tt", "ls", "-l"},
       {.host = "mac", .words = {"ls", "-l"}, .terminal = forced}},
      {{"-xoForwardAgent=no", "-l", "ada", "-s", "--", "bo@mac", "sftp"},
       {.host = "mac", .words = {"sftp"}, .user = "ada", .subsystem = true}},
      {{"-o", "SendEnv GIT_* LC_X", "-oSetEnv=A=\"b c\" D=e", "-nqt", "mac"},
       {.host = "mac",
        .environment = {"GIT_PROTOCOL=version=2", "A=b c", "D=e"},
        .terminal = wanted,
        .noInput = true,
        .quiet = true}},
      {{"-C", "-o", "ControlPersist=60s", "-o", "User=\"ada\"", "-oConnectTimeout=10", "-T",
        "ssh://mac:22", "--", "x"},
       {.host = "mac",
        .words = {"x"},
        .user = "ada",
        .terminal = never,
        .connectLimit = std::chrono::seconds(10)}},
  };
  for (const auto& [arguments, expected] : cases) {
    const auto parsed = parseSshCommandLine(arguments, environment);
    const auto* line = std::get_if<SshCommandLine>(&parsed);
    ASSERT_TRUE(line) << std::get<SshRefusal>(parsed).message;
    EXPECT_TRUE(*line == expected) << arguments.front();
  }
  for (const Words& refused : {Words{},
                               {"-t"},
                               {"-p"},
                               {"-L", "1:a:2", "mac"},
                               {"mac", "-A"},
                               {"-oLocalForward=1 a:2", "mac"},
                               {"-fN", "mac"},
                               {"-Ocheck", "mac"},
                               {"-z", "mac"}}) {
    EXPECT_TRUE(std::holds_alternative<SshRefusal>(parseSshCommandLine(refused, {})));
  }
  EXPECT_TRUE(std::holds_alternative<SshRefusal>(
      guestLine({.host = "mac", .words = {"netconf"}, .subsystem = true})));
}

TEST(GuestTerminal, GreetingAndEscapesAreNobodysBusiness) {
  GuestTerminal::Greeting greeting("mark");
  EXPECT_EQ(greeting.take("first\r\nma"), "");
  EXPECT_EQ(greeting.take("rk /dev/pts/3\r\nand"), "first\r\nand");
  EXPECT_EQ(greeting.path(), "/dev/pts/3");
  EXPECT_EQ(greeting.take("mark x\n") + greeting.rest(), "mark x\n");
  const std::string endless(65'537, '-');
  EXPECT_EQ(GuestTerminal::Greeting("mark").take(endless), endless);

  GuestTerminal::Escape escape;
  EXPECT_EQ(escape.take("~"), "");
  EXPECT_EQ(escape.take("~a~.b\r~x\n"), "~a~.b\r~x\n");
  EXPECT_THROW(escape.take("~."), GuestTerminal::Left);
}

}  // namespace
}  // namespace tervain
