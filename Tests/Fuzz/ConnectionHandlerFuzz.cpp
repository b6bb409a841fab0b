// A connection from its first byte to its last, on the scripted platform: whatever comes, there is
// one JSON object with a boolean "ok" for each line that is not empty.
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <thread>

#include "Fuzz/Fuzz.h"
#include "Fuzz/HostEnd.h"
#include "ScriptedPlatform/ScriptedAccessibility.h"
#include "ScriptedPlatform/ScriptedCapture.h"
#include "ScriptedPlatform/ScriptedEvents.h"
#include "ScriptedPlatform/ScriptedLaunch.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/TempDir.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/ExecSession.h"

using namespace tervain;

namespace {

std::shared_ptr<test::ScriptedElement> scriptTree() {
  using Platform::AXAttribute;
  const auto element = [](const char* role, const char* title) {
    auto made = std::make_shared<test::ScriptedElement>();
    made->attributes = {{AXAttribute::role, std::string(role)},
                        {AXAttribute::title, std::string(title)},
                        {AXAttribute::position, Platform::Point{1, 2}},
                        {AXAttribute::size, Platform::Size{3, 4}}};
    made->actionNames = {"AXPress"};
    return made;
  };
  const auto root = element("AXApplication", "Editor");
  root->attributes[AXAttribute::children] =
      Platform::AXElements{{test::handleOf(element("AXButton", "Save/Close"))}, 2};
  return root;
}

/// A desktop of one display with one application, and a home to be in with a folder "s" for events.
struct World {
  World() {
    // Whatever is asked for here must do no harm.
    setenv("HOME", home.path().c_str(), 1);
    fuzz::require(chdir(home.path().c_str()) == 0 && mkdir("s", 0700) == 0, "no folder for events");
    unsetenv("TERVAIN_DULK_DISABLE");
    fuzz::require(access(std::string(ExecSession::defaultDulkPath).c_str(), X_OK) != 0,
                  "this machine has an agent shell, which would run what the fuzzer comes up with");
    test::scriptedStatus().displays = {{1, 640, 480, true}};
    test::scriptedStatus().pointer = Platform::Point{1.5, -2.5};
    test::scriptedStatus().frontmost = 7;
    const auto tree = scriptTree();
    test::scriptedAccessibility().applications = {{7, tree}};
    test::scriptedAccessibility().atPosition = test::handleOf(tree);
    test::ScriptedCapture capture;
    capture.displays = {{{640, 480}, 1}};
    test::script(capture);
    test::script(test::ScriptedLaunch{[](const auto&) { return std::nullopt; },
                                      [](const auto&) { return 1; }});
  }
  test::TempDir home;
};

/// Whether a line asks to look for events outside of the home of this test.
bool leavesHome(std::string_view line) {
  const auto request = parseObject(line);
  const std::string* dir = request ? stringMember(*request, "dir") : nullptr;
  return dir && (dir->starts_with('/') || dir->find("..") != std::string::npos);
}

/// How many replies there must be, at least where an exec or a fatal error ends the connection.
struct Expected {
  int replies = 0;
  bool ends = false;
};

Expected expected(std::string_view stream) {
  Expected result;
  LineSplitBuffer lines;
  lines.append(stream);
  while (const auto line = lines.next()) {
    const auto request = parseObject(*line);
    const std::string* op = ConnectionHandler::requestOp(request);
    if (op && *op == "exec") {
      return {result.replies, true};
    }
    result.replies += line->empty() ? 0 : 1;
  }
  return result;
}

/// Serves a connection. Returns the fatal error that has ended it, if one has.
std::string serve(UniqueFD socket) {
  try {
    ConnectionHandler(std::move(socket)).run();
  } catch (const fuzz::FatalError& error) {
    return error.why;
  }
  return {};
}

void checkReplies(std::string_view heard, const Expected& expected, const std::string& fatal) {
  LineSplitBuffer lines;
  lines.append(heard);
  int replies = 0;
  while (const auto line = lines.next()) {
    const auto reply = parseObject(*line);
    fuzz::require(reply.has_value(), "a reply that is no JSON object");
    const auto ok = reply->find("ok");
    const bool isFrame = expected.ends && replies == expected.replies;
    fuzz::require(isFrame ? reply->value("t", "") == "err" : ok != reply->end() && ok->is_boolean(),
                  "a reply without \"ok\"");
    ++replies;
  }
  fuzz::require(lines.pendingBytes() == 0, "half a reply");
  fuzz::require(fatal.empty() ? replies == expected.replies + (expected.ends ? 1 : 0)
                              : replies < expected.replies,
                "another number of replies than of requests");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const World world;
  const auto pieces = fuzz::pieces(fuzz::textOf(data, size));
  const std::string stream = fuzz::joined(pieces);
  LineSplitBuffer lines;
  lines.append(stream);
  while (const auto line = lines.next()) {
    if (leavesHome(*line)) {
      return 0;
    }
  }
  world.home.write("s/1.jsonl", "{\"e\":1}\n");
  const int before = fuzz::nextDescriptor();
  std::string fatal;
  {
    fuzz::HostConnection connection;
    std::thread agent([&] { fatal = serve(std::move(connection.agent)); });
    const std::string heard = fuzz::talk(connection.host.get(), pieces);
    agent.join();
    checkReplies(heard, expected(stream), fatal);
  }
  test::scriptedEvents().posted.clear();
  fuzz::require(fatal.empty() || fatal.starts_with("the number in \"") ||
                    fatal.starts_with("the process identifier in \"pid\""),
                "a fatal error where there must be none");
  fuzz::require(fuzz::nextDescriptor() == before, "a descriptor leaks");
  return 0;
}
