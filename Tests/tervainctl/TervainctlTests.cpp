#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "Support/AgentProcess.h"

namespace tervain::test {
namespace {

using Words = std::vector<std::string>;

Json parse(const char* text) {
  return Json::parse(text);
}

/// Answers requests by script, connection after connection, and keeps them.
class ScriptedAgent {
 public:
  ScriptedAgent() = default;
  ~ScriptedAgent() { stop(); }
  ScriptedAgent(const ScriptedAgent&) = delete;
  ScriptedAgent& operator=(const ScriptedAgent&) = delete;

  [[nodiscard]] std::string path() const { return dir_.path("agent.sock"); }

  /// Begins to serve, with the replies that are set by then.
  void start() {
    if (!thread_.joinable() && !stopped_) {
      thread_ = std::thread([this] { serve(); });
    }
  }

  /// The requests so far, once all connections are through. Nothing more is served then.
  const std::vector<Json>& stop() {
    if (thread_.joinable()) {
      stopped_ = true;
      Peer::connect(path());  // wakes the thread, behind those that came before
      thread_.join();
    }
    return requests_;
  }

  std::map<std::string, Json> replies;  // by op; others get a bare success, null ends a connection

 private:
  void serve() {
    while (!stopped_) {
      Peer peer(UniqueFD(accept(listener_.get(), nullptr, nullptr)));
      while (const auto line = peer.readLine()) {
        const Json request = Json::parse(*line);
        if (request.value("op", "") == "hello") {  // asks only whether there is an agent
          peer.send("{}\n");
          continue;
        }
        requests_.push_back(request);
        const auto reply = replies.find(requests_.back().value("op", ""));
        if (reply != replies.end() && reply->second.is_null()) {
          break;
        }
        peer.send((reply == replies.end() ? Json{{"ok", true}} : reply->second).dump() + "\n");
      }
    }
  }

  TempDir dir_;
  UniqueFD listener_ = listenAt(path());
  std::vector<Json> requests_;
  std::atomic<bool> stopped_ = false;
  std::thread thread_;
};

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

/// Runs tervainctl to its end.
Outcome call(const std::string& agent, const Words& arguments, std::string_view input = "") {
  const TempDir dir;
  dir.write("in", input);
  Words command{"/bin/sh", "-c", R"(cd "$0"; exec "$@" <in >out 2>err)", dir.path(),
                TERVAINCTL_PATH};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const int status = runToEnd(command, {{"TERVAIN_AGENT", agent}}).status;
  return {status, textOf(dir.path("out")), textOf(dir.path("err"))};
}

Outcome call(ScriptedAgent& agent, const Words& arguments, std::string_view input = "") {
  agent.start();
  return call("unix:" + agent.path(), arguments, input);
}

TEST(TervainctlTest, OptionsBecomeRequests) {
  const struct {
    Words arguments;
    const char* request;
  } cases[]{
      {{"click", "1", "-2", "--button", "right", "--count", "2"},
       R"({"op":"click","x":1,"y":-2,"button":"right","count":2})"},
      {{"drag", "--from", "-1", "2", "-3", "4"},
       R"({"op":"drag","fromX":-1,"fromY":2,"toX":-3,"toY":4})"},
      {{"drag", "7", "8"}, R"({"op":"drag","toX":7,"toY":8})"},
      {{"scroll", "--dy", "-3"}, R"({"op":"scroll","dy":-3})"},
      {{"type", "[a, \"b\"]"}, R"({"op":"type","text":"[a, \"b\"]"})"},
      {{"type", "ping"}, R"({"op":"type","text":"ping"})"},
      {{"type", "--", "--help"}, R"({"op":"type","text":"--help"})"},
      {{"type", "-"}, R"({"op":"type","text":"from\nstdin"})"},
      {{"key", "cmd+-"}, R"({"op":"key","chord":"cmd+-"})"},
      {{"events"}, R"({"op":"shell-events"})"},
      {{"events", "--delete", "--max-bytes", "5"},
       R"({"op":"shell-events","truncate":true,"maxBytes":5})"},
      {{"raw"}, R"({"op":"last line"})"},
  };
  for (const auto& [arguments, request] : cases) {
    ScriptedAgent agent;
    agent.replies["shell-events"] = {{"ok", true}, {"events", ""}};
    const Outcome outcome = call(
        agent, arguments, arguments.front() == "raw" ? R"({"op":"last line"})" : "from\nstdin");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(agent.stop(), std::vector<Json>{parse(request)});
  }
}

TEST(TervainctlTest, SendsNothingThatMakesNoSense) {
  ScriptedAgent agent;
  for (const Words& arguments :
       {Words{"click", "1"}, Words{"click", "1", "2.5"}, Words{"click", "1", "2", "--button", "x"},
        Words{"tree", "--pid", "4294967296"}, Words{"press", "e1"}, Words{"drag", "--from", "1"},
        Words{"ping", "--", "x"}, Words{"find", "--role", "a", "--depth", "0"}, Words{}}) {
    const Outcome outcome = call(agent, arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err, "");
  }
  EXPECT_EQ(call(agent, {"exec"}).status, 255);
  EXPECT_EQ(call("nowhere", {"exec", "true"}).status, 255);
  EXPECT_TRUE(agent.stop().empty());
}

TEST(TervainctlTest, ExecIsTheGuestsCommandFromItsFirstWordOn) {
  const AgentProcess agent;
  const std::string address = "unix:" + agent.socket();
  const std::string input(1'000'000, 'i');
  const struct {
    Words arguments;
    int status;
    std::string out;
  } cases[]{
      {{"exec", "printf", "%s|", "it's", "a b", "[c]", "--", "-n"}, 0, "it's|a b|[c]|--|-n|"},
      {{"-a", address, "exec", "cat; exit 7"}, 7, input},
      {{"exec", "-na", address, "cat", "-u"}, 0, ""},
      {{"exec", "--agent=" + address, "--", "echo here"}, 0, "here\n"},
      {{"exec", "--what", "true"}, 255, ""},
      {{"exec", "--env", "A=1 2", "--cd", "/", "--env", "B='", "pwd; echo $A$B"}, 0, "/\n1 2'\n"},
      {{"exec", "--cd", "/none", "echo here"}, 255, ""},
      {{"exec", "--timeout", "0.5", "sleep 60"}, 124, ""},
  };
  for (const auto& [arguments, status, out] : cases) {
    const Outcome outcome = call(address, arguments, input);
    EXPECT_EQ(outcome.status, status) << outcome.err;
    EXPECT_TRUE(outcome.out == out) << outcome.out.substr(0, 100);
  }
  Program waiting({TERVAINCTL_PATH, "-a", address, "exec", "-n",
                   "trap 'exit 9' TERM; echo ready; while :; do sleep 0.1; done"});
  EXPECT_EQ(waiting.line(), "ready");
  waiting.signal(SIGTERM);
  EXPECT_EQ(waiting.waitForEnd(), 9);

  ScriptedAgent refusing;
  refusing.replies["exec"] = parse(R"({"ok":false,"error":"no shell"})");
  const Outcome refused = call(refusing, {"exec", "true"});
  EXPECT_EQ(refused.status, 255);
  EXPECT_EQ(refused.err, "tervainctl: no shell\n");
}

TEST(TervainctlTest, WhatDoesNotAnswerIsToldInTime) {
  const ScriptedAgent silent;  // takes connections, and leaves them alone
  const TempDir dir;
  dir.write("agents", "quiet unix:" + silent.path() + "\n");
  const std::string ssh = TERVAIN_SSH_PATH;
  const struct {
    Words command;
    int status;
    const char* complaint;
  } cases[]{
      {{TERVAINCTL_PATH, "--timeout", "0.2", "-a", "quiet", "ping"}, 124, "0.2 seconds"},
      {{TERVAINCTL_PATH, "--timeout", "0.2", "agents"}, 1, ""},
      {{TERVAINCTL_PATH, "--timeout", "2", "-a", "unix:/none", "wait-ready"}, 124, "/none"},
      {{TERVAINCTL_PATH, "-a", "nobody", "ping"}, 2, "no agent is called nobody"},
      {{TERVAINCTL_PATH, "-a", "unix:/none", "ping"}, 1, "No such file"},
      {{ssh, "-oConnectTimeout=1", "quiet", "true"}, 255, "does not answer"},
      {{ssh, "nobody", "true"}, 255, "no agent is called nobody"},
      {{ssh, "-L", "1:a:2", "quiet"}, 255, "forwards nothing"},
  };
  for (const auto& [command, status, complaint] : cases) {
    const Ended ended = runToEnd(command, {{"TERVAIN_AGENTS", dir.path("agents")}});
    EXPECT_EQ(ended.status, status) << ended.err;
    EXPECT_NE(ended.err.find(complaint), std::string::npos) << ended.err;
  }
}

TEST(TervainctlTest, ScreenshotsGoWhereTheyAreWanted) {
  ScriptedAgent agent;
  const TempDir dir;
  const std::string image("\xff\xd8\0", 3);
  agent.replies["screenshot"] = {
      {"ok", true}, {"image", "/9gA"}, {"width", 2880}, {"height", 1800}, {"scale", 2.0}};
  const Outcome printed = call(agent, {"screenshot"});
  EXPECT_EQ(printed.out, image);
  EXPECT_EQ(printed.err, "tervainctl: 2880x1800 pixels, scale 2.0\n");
  dir.write("shot.jpg", "longer than the picture");
  const Outcome written = call(agent, {"screenshot", "--display", "1", "-o", dir.path("shot.jpg")});
  EXPECT_EQ(written.out, "");
  EXPECT_EQ(textOf(dir.path("shot.jpg")), image);
  EXPECT_EQ(call(agent, {"screenshot", "-o", dir.path("no/such")}).status, 1);
  EXPECT_EQ(agent.stop().at(1), parse(R"({"op":"screenshot","display":1})"));
}

TEST(TervainctlTest, TreesAreOutlined) {
  ScriptedAgent agent;
  agent.replies["ax_dump"] = parse(R"({"ok":true,"app":"Editor","truncated":true,"tree":
    {"ref":"e1","role":"AXApplication","title":"Editor","children":[
      {"ref":"e2","role":"AXWindow","subrole":"AXDialog","title":"a \"b\"\n","focused":true,
       "frame":{"x":-5,"y":0,"w":30,"h":40},"childrenOmitted":2,"children":[
         {"ref":"e3","role":"AXButton","value":"1","enabled":false,
          "actions":["AXPress","AXShowMenu"]}]},
      {"ref":"e4"}]}})");
  const Outcome outcome = call(agent, {"tree", "--depth", "3", "--pid", "12"});
  EXPECT_EQ(outcome.out,
            "e1 AXApplication \"Editor\"\n"
            "  e2 AXWindow/AXDialog \"a \\\"b\\\"\\n\" -5,0 30x40 focused\n"
            "    e3 AXButton =\"1\" disabled [AXPress, AXShowMenu]\n"
            "    2 not shown\n"
            "  e4\n");
  EXPECT_NE(outcome.err.find("more elements"), std::string::npos);
  EXPECT_EQ(Json::parse(call(agent, {"tree", "--json"}).out), agent.replies["ax_dump"]);
  EXPECT_EQ(agent.stop().front(), parse(R"({"op":"ax_dump","maxDepth":3,"pid":12})"));
}

TEST(TervainctlTest, SessionsPerformLineAfterLineOnOneConnection) {
  ScriptedAgent agent;
  agent.replies["cursor_position"] = parse(R"({"ok":true,"x":1,"y":2})");
  agent.replies["ping"] = parse(R"({"ok":true,"version":2,"readiness":{"screenRecording":1}})");
  agent.replies["ax_element_at"] = parse(R"({"ok":true,"node":{"ref":"e1"}})");
  agent.replies["ax_action"] = parse(R"({"ok":true,"note":"verify"})");
  agent.replies["ax_focus"] = parse(R"({"ok":false,"error":"stale"})");
  agent.replies["ax_dump"] = parse(R"({"ok":true})");
  const Outcome outcome = call(agent, {"session"},
                               "# a comment\n"
                               "\n"
                               "cursor\r\n"
                               "ping\n"
                               "at -3 4   # what is there?\n"
                               "press e1\n"
                               "focus e1\n"
                               "tree\n"
                               "set e1 'it'\\''s \"\\' \n"
                               "set e1 ''\n"
                               "type \"a \\\"\\\\\\n#\"#b\\ c\n"
                               "type 'open\n"
                               "type -\n"
                               "exec -- ls\n"
                               "nonsense\n"
                               "press e1 AXShowMenu");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "1 2\nagent protocol v2\naccessibility: not granted\n"
            "screen recording: granted\ninput synthesis: not granted\ne1\n");
  for (const char* complaint :
       {"verify", "stale", "holds no elements", "ends within quotes", "put the text on the line",
        "exec doesn't work in a session", "no such command: nonsense"}) {
    EXPECT_NE(outcome.err.find(complaint), std::string::npos) << outcome.err;
  }
  const std::vector<Json> requests{
      parse(R"({"op":"cursor_position"})"),
      parse(R"({"op":"ping"})"),
      parse(R"({"op":"ax_element_at","x":-3,"y":4})"),
      parse(R"({"op":"ax_action","ref":"e1"})"),
      parse(R"({"op":"ax_focus","ref":"e1"})"),
      parse(R"({"op":"ax_dump"})"),
      parse(R"({"op":"ax_set_value","ref":"e1","value":"it's \"\\"})"),
      parse(R"({"op":"ax_set_value","ref":"e1","value":""})"),
      parse(R"({"op":"type","text":"a \"\\\\n##b c"})"),
      parse(R"({"op":"ax_action","ref":"e1","action":"AXShowMenu"})"),
  };
  EXPECT_EQ(agent.stop(), requests);
}

TEST(TervainctlTest, SessionsEndWithTheAgent) {
  ScriptedAgent agent;
  EXPECT_EQ(call(agent, {"session"}, "move 1 2\nclick --help\n").status, 0);
  agent.stop();
  ScriptedAgent leaving;
  leaving.replies["key"] = nullptr;
  const Outcome outcome = call(leaving, {"session"}, "key a\nnonsense\n");
  EXPECT_NE(outcome.err.find("the agent closed the connection"), std::string::npos);
  EXPECT_EQ(outcome.err.find("nonsense"), std::string::npos);
}

}  // namespace
}  // namespace tervain::test
