// Applications: launched, read, driven and ended as a person would, in an editor of the run's own.

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <set>
#include <sstream>

#include "VMAgentCore/AgentError.h"
#include "tervainctl/ConformGuest.h"
#include "tervainctl/ConformPicture.h"
#include "tervainctl/ConformTree.h"

namespace tervain::ctl::conform {
namespace {

const Json success{{"ok", true}};

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

/// The guest's processes whose program has this name, in whatever case and folder.
std::set<std::int64_t> processesNamed(const Guest& guest, std::string_view name) {
  std::istringstream lines(runToEnd(guest, "ps -A -o pid= -o comm=").out);
  std::set<std::int64_t> pids;
  std::int64_t pid = 0;
  std::string program;
  while (lines >> pid && std::getline(lines >> std::ws, program)) {
    if (lowerCase(program.substr(program.rfind('/') + 1)) == lowerCase(name)) {
      pids.insert(pid);
    }
  }
  return pids;
}

/// The editor that the run has launched, and the connection that it is worked with.
class Editor {
 public:
  explicit Editor(const Guest& guest) : guest_(guest), host_(guest.connect()) {}
  ~Editor() {
    try {
      close();
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the guest is out of reach
    }
  }
  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  /// Launches it, and waits until it is in front and has a text.
  void open(Findings& findings);

  /// Empties it, so that nothing asks whether to save or comes back, and ends it.
  bool close();

  /// Whether it can be worked with.
  [[nodiscard]] bool isOpen() const { return open_; }
  [[nodiscard]] std::int64_t pid() const { return pid_; }

  Json perform(const char* op, Json fields) {
    fields["op"] = op;
    return host_.request(fields, soon());
  }

  /// Its text as it is now, with a ref; null when there is none.
  Json text() {
    return findNode(dump().value("tree", Json()),
                    [](const Json& node) { return node.value("role", "") == "AXTextArea"; });
  }

  /// Performs an operation on the text.
  Json act(const char* op, Json fields = Json::object()) {
    ref_ = text().value("ref", "");
    return actAgain(op, std::move(fields));
  }

  /// The same by the ref that was used last.
  Json actAgain(const char* op, Json fields = Json::object()) {
    fields["ref"] = ref_;
    return perform(op, std::move(fields));
  }

  /// Waits until its text is this one; notes what it is otherwise.
  bool expectText(Findings& findings, std::string_view wanted);

  /// Writes its text by way of the tree.
  bool write(Findings& findings, std::string_view text);

  Json dump() { return perform("ax_dump", {{"pid", pid_}, {"maxDepth", 25}}); }

 private:
  bool isInFront() {
    return perform("ax_dump", {{"maxDepth", 1}}).value("app", "") == dump().value("app", "?");
  }

  const Guest& guest_;
  AgentConnection host_;
  std::int64_t pid_ = 0;
  Json ref_;
  bool open_ = false;
};

void Editor::open(Findings& findings) {
  findings.note(guest_.app());
  if (!processesNamed(guest_, guest_.app()).empty()) {
    findings.skip(guest_.app() +
                  " runs already, maybe with a user's texts; end it, or name "
                  "another editor with --app");
    return;
  }
  const Json reply = perform("launch_app", {{"name", guest_.app()}});
  if (!findings.expectEqual("launch_app", reply, success)) {
    return;
  }
  const bool runs = eventually([&] {
    const auto pids = processesNamed(guest_, guest_.app());
    pid_ = pids.empty() ? 0 : *pids.rbegin();
    return pid_ > 0;
  });
  if (!findings.expect(runs, "no process named " + guest_.app()) ||
      !findings.expect(eventually([&] { return isInFront(); }), "it does not come to the front")) {
    return;
  }
  // On macOS an editor may first ask which document to open.
  constexpr std::chrono::seconds grace{4};
  if (guest_.isMac() && !eventually([&] { return text().is_object(); }, grace)) {
    perform("key", {{"chord", "cmd+n"}});
  }
  open_ = findings.expect(eventually([&] { return text().is_object(); }), "it shows no AXTextArea");
}

bool Editor::close() {
  if (pid_ == 0) {
    return true;
  }
  act("ax_set_value", {{"value", ""}});
  const std::string pid = std::to_string(pid_);
  constexpr std::chrono::seconds grace{5};
  const auto ends = [&](const std::string& signal) {
    runToEnd(guest_, "kill -" + signal + " " + pid);
    return eventually([&] { return !isRunning(guest_, pid_); }, grace);
  };
  const bool ended = ends("TERM") || ends("KILL");
  pid_ = 0;
  open_ = false;
  return ended;
}

bool Editor::expectText(Findings& findings, std::string_view wanted) {
  std::string got;
  eventually([&] { return (got = text().value("value", "")) == wanted; });
  return findings.expectEqual("its text", got, wanted);
}

bool Editor::write(Findings& findings, std::string_view text) {
  return findings.expectEqual("ax_set_value", act("ax_set_value", {{"value", text}}), success) &&
         expectText(findings, text);
}

void reads(const Guest& guest, Findings& findings, Editor&) {
  checkFrontmostTree(guest, findings);
}

void focuses(const Guest& guest, Findings& findings, Editor& editor) {
  const Json reply = editor.act("ax_focus");
  if (!guest.isMac() && reply == failure("focusing failed (attribute unsupported)")) {
    findings.note("this toolkit refuses it");
    return;
  }
  findings.expectEqual("ax_focus", reply, success);
  findings.expect(eventually([&] { return truthy(editor.text(), "focused"); }),
                  "the text is not the focused element");
}

void types(const Guest&, Findings& findings, Editor& editor) {
  // No words that an editor could correct. The emoji is not cut in two: 16 units go at a time.
  const char* const text = "1é 2ü 3ß 4ñ 5Ω 6漢 7😀 8(x@y) end";
  if (editor.write(findings, "")) {
    findings.expectEqual("type", editor.perform("type", {{"text", text}}), success);
    editor.expectText(findings, text);
  }
}

void setsValues(const Guest&, Findings& findings, Editor& editor) {
  editor.write(findings, "Größe 漢字 😀\nand a line");
  editor.write(findings, "short");
  findings.expectEqual("without a value", editor.act("ax_set_value", {{"value", 42}}),
                       failure("ax_set_value requires a string \"value\""));
}

void cutsLongValues(const Guest&, Findings& findings, Editor& editor) {
  std::string shown;
  for (int i = 0; i < 250; ++i) {
    shown += i % 2 == 0 ? "ä" : "b";
  }
  editor.write(findings, shown);
  findings.expectEqual("ax_set_value", editor.act("ax_set_value", {{"value", shown + "c"}}),
                       success);
  editor.expectText(findings, shown + "…");
}

void pressesChords(const Guest& guest, Findings& findings, Editor& editor) {
  if (!editor.write(findings, "all of this goes")) {
    return;
  }
  const char* const selectAll = guest.isMac() ? "Cmd+A" : "Ctrl+A";
  findings.expectEqual("key", editor.perform("key", {{"chord", selectAll}}), success);
  findings.expectEqual("type", editor.perform("type", {{"text", "7"}}), success);
  editor.expectText(findings, "7");
  findings.expectEqual("key", editor.perform("key", {{"chord", "backspace"}}), success);
  editor.expectText(findings, "");
}

void worksWithThePointer(const Guest&, Findings& findings, Editor& editor) {
  if (!editor.write(findings, "abcdefghijkl mnop")) {
    return;
  }
  const Json frame = editor.text().value("frame", Json());
  if (!findings.expect(frame.is_object(), "the text has no frame")) {
    return;
  }
  // Within the first word, whatever the font.
  const Json inWord{{"x", frame.value("x", 0) + 20}, {"y", frame.value("y", 0) + 9}};
  const Json hit = editor.perform("ax_element_at", inWord);
  findings.expectEqual("what lies there", hit.value("node", Json::object()).value("role", ""),
                       "AXTextArea");
  Json twice = inWord;
  twice["count"] = 2;
  findings.expectEqual("click", editor.perform("click", twice), success);
  findings.expectEqual("type", editor.perform("type", {{"text", "7"}}), success);
  if (!editor.expectText(findings, "7 mnop")) {
    return;
  }
  const Json drag{{"fromX", frame.value("x", 0) + frame.value("w", 0) - 20},
                  {"fromY", inWord["y"]},
                  {"toX", frame.value("x", 0) + 1},
                  {"toY", inWord["y"]}};
  findings.expectEqual("drag", editor.perform("drag", drag), success);
  findings.expectEqual("type", editor.perform("type", {{"text", "8"}}), success);
  editor.expectText(findings, "8");
}

void showsWhatChanged(const Guest& guest, Findings& findings, Editor& editor) {
  if (!needs(guest, findings, Grant::screenRecording) || !editor.write(findings, "")) {
    return;
  }
  const Json before = editor.perform("screenshot", Json::object());
  editor.write(findings, "Something to be seen");
  Json after;
  const bool changed = eventually([&] {
    after = editor.perform("screenshot", Json::object());
    return after.value("image", "") != before.value("image", "");
  });
  const std::string fault = pictureFault(after);
  findings.expect(fault.empty(), fault);
  findings.expect(changed, "the picture is the same before and after");
}

/// Puts the caret where the pointer clicks, and tells which line that was in.
std::size_t clickedLine(Editor& editor, const Json& place) {
  editor.perform("click", place);
  editor.perform("type", {{"text", "Z"}});
  std::string text;
  eventually([&] { return (text = editor.text().value("value", "")).find('Z') != text.npos; });
  const auto end =
      text.begin() + static_cast<std::ptrdiff_t>(std::min(text.rfind('Z'), text.size()));
  return static_cast<std::size_t>(std::count(text.begin(), end, '\n'));
}

void turnsTheWheel(const Guest&, Findings& findings, Editor& editor) {
  // As many lines as a value shows. More than fit the window, or there is nothing to scroll.
  std::string lines;
  for (int i = 0; i < 110; ++i) {
    lines += i == 0 ? "a" : "\na";
  }
  if (!editor.write(findings, lines)) {
    return;
  }
  const Json frame = editor.text().value("frame", Json::object());
  const Json place{{"x", frame.value("x", 0) + 30}, {"y", frame.value("y", 0) + 60}};
  const std::size_t before = clickedLine(editor, place);
  std::size_t after = 0;
  const bool scrolled = eventually([&] {
    findings.expectEqual("scroll", editor.perform("scroll", {{"dy", -10}}), success);
    return (after = clickedLine(editor, place)) > before;
  });
  findings.expect(scrolled, "a negative amount goes down, but line " + std::to_string(before) +
                                " became line " + std::to_string(after));
}

void leavesNothing(const Guest& guest, Findings& findings, Editor& editor) {
  const std::int64_t pid = editor.pid();
  if (!findings.expect(editor.close(), "it does not end when it is killed")) {
    return;
  }
  findings.expectEqual(
      "ax_set_value", editor.actAgain("ax_set_value", {{"value", "x"}}),
      failure("this element's AXValue is not settable — focus it (ax_focus) and type instead"));
  findings.expectEqual(
      "its tree", guest.ask({{"op", "ax_dump"}, {"pid", pid}}),
      {{"ok", true}, {"app", "pid " + std::to_string(pid)}, {"tree", {{"ref", "e1"}}}});
}

using EditorCheck = void (*)(const Guest&, Findings&, Editor&);

}  // namespace

std::vector<Check> desktopChecks() {
  const auto editor = std::make_shared<std::unique_ptr<Editor>>();
  const auto opens = [editor](const Guest& guest, Findings& findings) {
    if (!guest.execRefusal().empty()) {
      findings.skip("the guest runs no commands, by which the editor could be ended");
    } else if (needs(guest, findings, Grant::accessibility) &&
               needs(guest, findings, Grant::inputSynthesis)) {
      *editor = std::make_unique<Editor>(guest);
      (*editor)->open(findings);
    }
  };
  std::vector<Check> checks{{"desktop", "an editor is launched and comes to the front", opens}};
  const auto add = [&](const char* what, EditorCheck run) {
    checks.push_back({"desktop", what, [editor, run](const Guest& guest, Findings& findings) {
                        if (*editor && (*editor)->isOpen()) {
                          run(guest, findings, **editor);
                        } else {
                          findings.skip("there is no editor");
                        }
                      }});
  };
  add("its tree is well formed, however deep it is asked for", reads);
  add("its text takes the focus", focuses);
  add("typed accents, scripts and an emoji arrive", types);
  add("values written to its text are there", setsValues);
  add("a value of more than 250 characters is cut", cutsLongValues);
  add("chords and keys are pressed", pressesChords);
  add("double-click and drag select", worksWithThePointer);
  add("the wheel scrolls", turnsTheWheel);
  add("the picture changes with the text", showsWhatChanged);
  add("once it is ended, nothing of it is left", leavesNothing);
  return checks;
}

}  // namespace tervain::ctl::conform
