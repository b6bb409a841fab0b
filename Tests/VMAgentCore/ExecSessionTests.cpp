#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

#include "Support/AgentProcess.h"
#include "Support/Peer.h"
#include "Support/TempDir.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/ExecSession.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

using namespace std::chrono_literals;
using test::Clock;
using test::ExecResult;
using test::Peer;
using test::readExec;
using test::stdinFrame;

/// Takes the agent shell's place: it understands "-lc" too.
constexpr const char* standIn = "/bin/sh";

/// A session on a thread of its own, and the host's end of its connection.
class Session {
 public:
  explicit Session(const Json& request, std::string_view buffered = "", int graceMillis = 2000,
                   const std::string& shell = standIn) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    host = Peer(UniqueFD(ends[0]));
    LineSplitBuffer lines;
    lines.append(buffered);
    thread_ = std::thread([agent = UniqueFD(ends[1]), request, lines = std::move(lines),
                           graceMillis, shell]() mutable {
      ExecSession(agent.get(), std::move(lines), shell, graceMillis).run(request);
    });
  }
  ~Session() {
    host.close();
    thread_.join();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Peer host{UniqueFD()};

 private:
  std::thread thread_;
};

Json command(std::string_view text) {
  return {{"command", text}};
}

ExecResult run(std::string_view text, std::string_view frames = "") {
  Session session(command(text), frames);
  return readExec(session.host);
}

TEST(ExecSession, ReportsOutputAndExitCode) {
  const std::tuple<const char*, const char*, const char*, int> cases[] = {
      {"", "", "", 0},
      {"echo out; echo err >&2; exit 3", "out\n", "err\n", 3},
      {"kill -9 $$", "", "", 137},
      {"no-such-program 2>/dev/null", "", "", 127},
      {"exec >&- 2>&-; exit 5", "", "", 5},
      {R"(  printf '%s|' "$0" "a  b" 'c"d')", "/bin/sh|a  b|c\"d|", "", 0},
      {"yes | head -n 1", "y\n", "", 0}};
  for (const auto& [text, out, err, code] : cases) {
    const ExecResult result = run(text);
    EXPECT_EQ(result.out, out) << text;
    EXPECT_EQ(result.err, err) << text;
    EXPECT_EQ(result.code, code) << text;
  }
}

TEST(ExecSession, AppliesTheFramesOfTheHost) {
  std::string noise;
  for (const char* line : {"\r", "", "not json", "[1]", R"({"t":5})", R"({"t":"resize"})",
                           R"({"t":"i"})", R"({"t":"i","d":"!!"})", R"({"t":"i","d":7})",
                           R"({"t":"sig"})", R"({"t":"sig","n":1.5})", R"({"t":"sig","n":-70})"}) {
    noise += line + std::string("\n");
  }
  const std::string eof = "{\"t\":\"eof\"}\n";
  EXPECT_EQ(run("cat", noise + stdinFrame("hi\n") + "{\"t\":\"i\",\"d\":\"aGkK\"}\r\n" + eof +
                           stdinFrame("late") + eof)
                .out,
            "hi\nhi\n");
  // Frames that come while the command runs; the group gets the signal, not just the shell.
  Session session(command("cat; sleep 60 | cat; echo unreachable"));
  session.host.send(stdinFrame("once"));
  EXPECT_EQ(session.host.readJson().value("t", ""), "o");
  session.host.send(eof + R"({"t":"sig","n":15})" + "\n");
  EXPECT_EQ(readExec(session.host).code, 128 + SIGTERM);
}

TEST(ExecSession, DoesNotWaitForWhatOutlivesTheCommand) {
  const auto start = Clock::now();
  Session held(command("sleep 60 & echo $!; exit 4"), "", 300);
  const ExecResult result = readExec(held.host);
  EXPECT_EQ(result.code, 4);
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_LT(Clock::now() - start, 20s);
  kill(std::stoi(result.out), SIGKILL);
  // The exit is told at once when nothing holds the pipes, and only then when all are closed early.
  const auto before = Clock::now();
  Session early(command("exec >&- 2>&-; sleep 0.3; exit 6"), "", 60'000);
  EXPECT_EQ(readExec(early.host).code, 6);
  EXPECT_GE(Clock::now() - before, 300ms);
}

TEST(ExecSession, TakesTheCommandDownWithTheHost) {
  pid_t grandchild = -1;
  {
    Session session(command("sh -c 'trap \"\" HUP TERM; echo $$; sleep 60; :' & wait"));
    const auto printed = decodeBase64(session.host.readJson().value("d", ""));
    grandchild = std::stoi(printed.value_or("-1"));
    session.host.close();
  }  // joins: the session has ended
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was not reaped";
  EXPECT_TRUE(test::eventually([&] { return !test::isRunning(grandchild); }));
}

TEST(ExecSession, SaysWhyACommandCannotRun) {
  const test::TempDir dir;
  const std::string shell = dir.path("shell");
  Session malformed(Json{{"command", 42}});
  EXPECT_EQ(readExec(malformed.host).error, "exec requires a \"command\" string");
  dir.write("shell", "#!/nowhere\n");
  Session missing(command("true"), "", 0, shell);
  const ExecResult result = readExec(missing.host);
  EXPECT_EQ(result.error,
            "dulk is not installed in this guest (/usr/local/bin/dulk) — dulk is the required "
            "agent shell in every virtualized environment (docs/DULK.md §7.5), so the exec surface "
            "refuses to run without it. Rebuild the macOS VM base image so provisioning installs "
            "it.");
  EXPECT_EQ(result.code, std::nullopt);
  std::filesystem::permissions(shell, std::filesystem::perms::owner_all);
  Session broken(command("true"), "", 0, shell);
  EXPECT_EQ(readExec(broken.host).error, "could not launch the command (posix_spawn errno 2)");
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

TEST(ExecSession, GivesUpOnACommandThatDoesNotRead) {
  System::Pipe pipe = System::makePipe();
  fcntl(pipe.writeEnd.get(), F_SETFL, O_NONBLOCK);
  const auto start = Clock::now();
  ExecSession::writeBounded(pipe.writeEnd.get(), std::string(1'000'000, 'x'), 20);
  EXPECT_GE(Clock::now() - start, 40ms);
  EXPECT_LT(Clock::now() - start, 10s);
  pipe.readEnd.reset();
  std::signal(SIGPIPE, SIG_IGN);
  ExecSession::writeBounded(pipe.writeEnd.get(), "x", 1'000'000);  // returns: nobody will read
}

TEST(ExecSessionDeathTest, ASignalNumberThatIsNoneIsFatal) {
  EXPECT_DEATH(run("sleep 60", "{\"t\":\"sig\",\"n\":3000000000}\n"), "fatal error: .*signal");
}

}  // namespace
}  // namespace tervain
