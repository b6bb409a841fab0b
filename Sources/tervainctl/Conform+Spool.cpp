// Shell events. What is written and deleted lies in a folder of the run's own; of the guest's spool
// nothing is taken away.

#include <memory>

#include "VMAgentCore/Base64.h"
#include "tervainctl/ConformGuest.h"

namespace tervain::ctl::conform {
namespace {

/// A folder in the guest, with what a command has put into it. Removed in the end.
class GuestFolder {
 public:
  GuestFolder(const Guest& guest, std::string_view command) : guest_(guest) {
    const auto came = runToEnd(guest, "d=$(mktemp -d) && cd \"$d\" && { " + std::string(command) +
                                          "; } && printf %s \"$d\"");
    path_ = came.code == 0 ? came.out : "";
  }
  ~GuestFolder() {
    try {
      run("cd / && rm -r \"$d\"");
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): a folder is left behind
    }
  }
  GuestFolder(const GuestFolder&) = delete;
  GuestFolder& operator=(const GuestFolder&) = delete;

  /// Empty when it could not be made.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// The output of a command run in it, which has its path in $d.
  std::string run(const std::string& command) const {
    return path_.empty() ? "" : runToEnd(guest_, "d='" + path_ + "'; cd \"$d\" && " + command).out;
  }

 private:
  const Guest& guest_;
  std::string path_;
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
  const GuestFolder folder(guest,
                           "printf 22222 >2.jsonl && printf 1111111111 >1.jsonl && "
                           "printf 333 >3.jsonl && printf x >notes.txt && printf y >4.JSONL && "
                           "mkdir 0.jsonl");
  const Json all = collected("111111111122222333", 3);
  const Json dir = folder.path();
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
    Json request{{"op", "shell-events"}, {"dir", dir}};
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

void knowsTheSpool(const Guest& guest, Findings& findings) {
  findings.note("only looked at, but for one file of this run");
  const auto added = runToEnd(guest,
                              "cd; s=Library/Caches/tervain-dulk; test -d $s || { mkdir -p $s && "
                              "printf made; }; printf tervainctl-conform >$s/0-tervainctl.jsonl");
  // A folder that is no text counts as not named.
  const Json reply = guest.ask({{"op", "shell-events"}, {"dir", 5}});
  const std::string* text = stringMember(reply, "events");
  const std::string events = text ? decodeBase64(*text).value_or("") : "";
  findings.expect(events.find("tervainctl-conform") != std::string::npos,
                  "a file in ~/Library/Caches/tervain-dulk is not collected");
  const bool made = added.out == "made";
  runToEnd(guest, std::string("cd; s=Library/Caches/tervain-dulk; rm $s/0-tervainctl.jsonl; ") +
                      (made ? "rmdir -p $s 2>/dev/null" : ""));
}

Check withCommands(const char* what, void (*run)(const Guest&, Findings&)) {
  return {"shell-events", what, [run](const Guest& guest, Findings& findings) {
            if (guest.execRefusal().empty()) {
              run(guest, findings);
            } else {
              findings.skip("the guest runs no commands that could write events");
            }
          }};
}

}  // namespace

std::vector<Check> spoolChecks() {
  return {
      {"shell-events", "a folder that is missing is empty", findsNothingWhereNothingIs},
      withCommands("files come in order, within the budget, and go if asked", collectsInOrder),
      withCommands("the usual folder is the agent shell's spool", knowsTheSpool),
  };
}

}  // namespace tervain::ctl::conform
