// What an exec comes to before its command runs. What becomes of commands is tried with the whole
// program, in EndToEnd and by the conformance run.

#include <gtest/gtest.h>

#include <filesystem>

#include "Support/Peer.h"
#include "Support/Sockets.h"
#include "Support/TempDir.h"
#include "VMAgentCore/ExecSession.h"

namespace tervain {
namespace {

/// What the host hears of a session that ends by itself. `frames` came with the request.
test::ExecResult run(const Json& request, const std::string& shell, std::string_view frames = "") {
  auto [end, agent] = test::socketPair();
  test::Peer host(std::move(end));
  LineSplitBuffer lines;
  lines.append(frames);
  ExecSession(agent.get(), std::move(lines), shell).run(request);
  agent.reset();
  return readExec(host);
}

TEST(ExecSession, SaysWhyACommandCannotRun) {
  using std::filesystem::perms;
  const test::TempDir dir;
  const std::string shell = dir.path("shell");
  const Json request{{"command", "true"}};
  dir.write("shell", "#!/nowhere\n");
  EXPECT_EQ(run(request, shell).error, ExecSession::dulkMissingMessage());
  EXPECT_EQ(run(request, dir.path()).error, ExecSession::dulkMissingMessage()) << "a folder";
  std::filesystem::permissions(shell, perms::owner_all);
  const test::ExecResult broken = run(request, shell);
  EXPECT_EQ(broken.error, "could not launch the command (posix_spawn errno 2)");
  EXPECT_EQ(broken.code, std::nullopt);
  EXPECT_EQ(run({{"command", std::string("true\0false", 10)}}, "/bin/sh").error,
            "could not launch the command (posix_spawn errno 22)");
}

TEST(ExecSession, ChoosesTheShell) {
  const auto invoke = [](const Environment& environment, bool installed) {
    return ExecSession::shellInvocation("echo", "/opt/dulk", environment,
                                        [installed](const std::string&) { return installed; });
  };
  const auto fallback = invoke({{"TERVAIN_DULK_DISABLE", "1"}, {"A", "b"}}, true);
  EXPECT_EQ(fallback->path, "/bin/zsh");
  EXPECT_EQ(fallback->args, (std::vector<std::string>{"-c", "echo"}));
  EXPECT_EQ(fallback->env.size(), 2U);
  EXPECT_FALSE(invoke({{"TERVAIN_DULK_DISABLE", "true"}}, false));
  EXPECT_FALSE(invoke({{"TERVAIN_DULK_DISABLE", ""}}, false));

  const auto shell = invoke({{"TERVAIN_SHELL_SPOOL", "/elsewhere"}}, true);
  EXPECT_EQ(shell->path, "/opt/dulk");
  EXPECT_EQ(shell->args, (std::vector<std::string>{"-lc", "echo"}));
  EXPECT_EQ(shell->env.at("TERVAIN_SHELL_SPOOL"), homeDirectory() + "/Library/Caches/tervain-dulk");
  EXPECT_EQ(shell->env.at("TERVAIN_SHELL_CAPTURE"), "tap");
  EXPECT_EQ(invoke({{"TERVAIN_SHELL_CAPTURE", ""}}, true)->env.at("TERVAIN_SHELL_CAPTURE"), "");
}

TEST(ExecSessionDeathTest, ASignalNumberThatIsNoneIsFatal) {
  for (const char* frame : {"{\"t\":\"sig\",\"n\":3000000000}\n", "{\"t\":\"sig\",\"n\":-3e9}\n"}) {
    EXPECT_DEATH(run({{"command", "exit"}}, "/bin/sh", frame), "fatal error: .*signal") << frame;
  }
}

}  // namespace
}  // namespace tervain
