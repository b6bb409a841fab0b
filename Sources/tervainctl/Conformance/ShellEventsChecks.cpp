// Shell events. What is written and deleted lies in a folder of the run's own; where the agent
// shell leaves its events nothing is taken away.

#include "VMAgentCore/Base64/Base64.h"
#include "tervainctl/Conformance/Check.h"
#include "tervainctl/Conformance/GuestCommand.h"
#include "tervainctl/Conformance/Patience.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

/// A new folder in the guest. Removed in the end.
class GuestFolder {
 public:
  explicit GuestFolder(const Guest& guest)
      : guest_(guest),
        path_(runToEnd(guest, "printf %s \"$(mktemp -d)\"").out),
        cleanup_(guest, "test -z '" + path_ + "' || rm -r '" + path_ + "'") {}

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The output of a command that is run in it; empty when it could not be made.
  std::string run(const std::string& command) const {
    return path_.empty() ? "" : runToEnd(guest_, "cd '" + path_ + "' && " + command).out;
  }

 private:
  const Guest& guest_;
  std::string path_;
  Cleanup cleanup_;
};

Json collected(std::string_view events, int files, bool truncated = false) {
  std::string text;
  appendBase64(text, events);
  return {{"ok", true},
          {"events", text},
          {"files", files},
          {"bytes", events.size()},
          {"truncated", truncated}};
}

void collectsInOrder(const Guest& guest, Findings& findings) {
  const GuestFolder folder(guest);
  folder.run(
      "printf 22222 >2.jsonl && printf 1111111111 >1.jsonl && printf 333 >3.jsonl && "
      "printf x >notes.txt && printf y >4.JSONL && mkdir 0.jsonl");
  const Json all = collected("111111111122222333", 3);
  const struct {
    const char* what;
    Json fields;
    Json wanted;
  } cases[]{
      {"all", {}, all},
      {"a budget that is no integer", {{"maxBytes", "1"}}, all},
      {"a budget that the second exceeds", {{"maxBytes", 13}}, collected("1111111111333", 2, true)},
      {"a budget used up by the first", {{"maxBytes", 10}}, collected("1111111111", 1, true)},
      {"no budget", {{"maxBytes", 0}}, collected("", 0, true)},
      {"a text for \"truncate\"", {{"truncate", "true"}}, all},
      {"\"truncate\"", {{"maxBytes", 13}, {"truncate", 1}}, collected("1111111111333", 2, true)},
      {"what was left", {{"truncate", true}}, collected("22222", 1)},
      {"an empty folder", {}, collected("", 0)},
  };
  AgentConnection host = guest.connect();
  for (const auto& [what, fields, wanted] : cases) {
    Json request{{"op", "shell-events"}, {"dir", folder.path()}};
    request.update(fields.is_null() ? Json::object() : fields);
    if (!findings.expectEqual(what, host.request(request, soon()), wanted)) {
      return;
    }
  }
  findings.expectEqual("the files left", folder.run("ls"), "0.jsonl\n4.JSONL\nnotes.txt\n");
}

void findsNothingWhereNothingIs(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  const Json request{{"op", "shell-events"}, {"dir", "/no/such/folder"}, {"truncate", true}};
  findings.expectEqual("a missing folder", host.request(request, soon()), collected("", 0));
  findings.expect(truthy(host.request({{"op", "ping"}}, soon()), "ok"),
                  "the next request is not served");
}

void knowsTheUsualFolder(const Guest& guest, Findings& findings) {
  findings.note("only looked at, but for one file of this run");
  // Folders that are not there yet are made, and their names printed, the innermost first.
  const std::string made =
      runToEnd(guest,
               "cd; f=; for d in Library Library/Caches Library/Caches/tervain-dulk; do "
               "test -d $d || { mkdir $d && f=\"$d $f\"; }; done; printf %s \"$f\"; "
               "printf tervainctl-conform >$d/0-tervainctl.jsonl")
          .out;
  const Cleanup cleanup(guest, "cd; rm Library/Caches/tervain-dulk/0-tervainctl.jsonl; " +
                                   (made.empty() ? made : "rmdir " + made));
  // A folder that is no text counts as not named.
  const Json reply = guest.ask({{"op", "shell-events"}, {"dir", 5}});
  const std::string* text = stringMember(reply, "events");
  const std::string events = text ? decodeBase64(*text).value_or("") : "";
  findings.expect(events.find("tervainctl-conform") != std::string::npos,
                  "a file in ~/Library/Caches/tervain-dulk is not collected");
}

}  // namespace

std::vector<Check> shellEventsChecks() {
  constexpr const char* area = "shell-events";
  return {
      {area, "a folder that is missing is empty", findsNothingWhereNothingIs},
      whereCommandsRun(
          {area, "files come in order, within the budget, and go if asked", collectsInOrder}),
      whereCommandsRun(
          {area, "the usual folder is where the agent shell leaves them", knowsTheUsualFolder}),
  };
}

}  // namespace tervain::ctl::conform
