// Applications: launched, read, driven and ended as a person would. Most of it in an editor.

#include <algorithm>
#include <memory>

#include "tervainctl/Conformance/Application.h"
#include "tervainctl/Conformance/Grants.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Patience.h"
#include "tervainctl/Conformance/Picture.h"
#include "tervainctl/Conformance/Replies.h"
#include "tervainctl/Conformance/Tree.h"

namespace tervain::ctl::conform {
namespace {

/// The editor that the checks work in, with a text that is the run's own.
class Editor {
 public:
  explicit Editor(const Guest& guest)
      : guest_(guest), application_(guest, guest.applications().editor) {}
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
  Application& application() { return application_; }

  Json perform(const char* op, Json fields = Json::object()) {
    return application_.perform(op, std::move(fields));
  }

  /// Presses keys, types or clicks, which must succeed.
  void press(Findings& findings, const char* chord) {
    findings.expectEqual("key", perform("key", {{"chord", chord}}), success);
  }
  void type(Findings& findings, const char* text) {
    findings.expectEqual("type", perform("type", {{"text", text}}), success);
  }
  void click(Findings& findings, const Json& place) {
    findings.expectEqual("click", perform("click", place), success);
  }

  /// Its text as it is now, with a ref; null when there is none.
  Json text() {
    return findNode(application_.dump().value("tree", Json()),
                    [](const Json& node) { return node.value("role", "") == "AXTextArea"; });
  }

  /// A place in its text, so far from the upper left corner. Up to 50 to the right it is within a
  /// first word of twelve letters, whatever the font.
  Json place(int right, int down = 9) {
    const Json frame = text().value("frame", Json::object());
    return {{"x", frame.value("x", 0) + right}, {"y", frame.value("y", 0) + down}};
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

 private:
  const Guest& guest_;
  Application application_;
  Json ref_;
  bool open_ = false;
};

void Editor::open(Findings& findings) {
  findings.note(application_.name());
  if (!application_.launch(findings)) {
    return;
  }
  // On macOS an editor may first ask which document to open.
  constexpr std::chrono::seconds grace{4};
  if (guest_.isMac() && !eventually([&] { return text().is_object(); }, grace)) {
    press(findings, "cmd+n");
  }
  open_ = findings.expect(eventually([&] { return text().is_object(); }), "it shows no AXTextArea");
}

bool Editor::close() {
  if (application_.pid() != 0) {
    act("ax_set_value", {{"value", ""}});
  }
  open_ = false;
  return application_.end();
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
    editor.type(findings, text);
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

const char* selectAll(const Guest& guest) {
  return guest.isMac() ? "Cmd+A" : "Ctrl+A";
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

void pressesChords(const Guest& guest, Findings& findings, Editor& editor) {
  if (!editor.write(findings, "all of this goes")) {
    return;
  }
  editor.press(findings, selectAll(guest));
  editor.type(findings, "7");
  editor.expectText(findings, "7");
  editor.press(findings, "backspace");
  editor.expectText(findings, "");
}

/// Waits until its text has these digits; whether it has all of these letters besides.
bool hasAllLetters(Editor& editor, std::string_view letters, std::size_t digits) {
  std::string text;
  eventually([&] {
    text = editor.text().value("value", "");
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isDigit)) == digits;
  });
  return std::erase_if(text, isDigit) == digits && text == letters;
}

void forgetsModifiers(const Guest& guest, Findings& findings, Editor& editor) {
  constexpr std::string_view letters = "abcdefghijkl mnop";
  if (!editor.write(findings, letters)) {
    return;
  }
  // Were the first modifier still down, no digit would be typed; with shift, a click would select
  // letters that the digit then takes the place of. The clicks lie apart, as two in one place are a
  // double-click.
  editor.press(findings, selectAll(guest));
  editor.click(findings, editor.place(20));
  editor.type(findings, "7");
  findings.expect(hasAllLetters(editor, letters, 1),
                  "a click or a key after " + std::string(selectAll(guest)) + " is modified");
  editor.press(findings, "shift+left");
  editor.click(findings, editor.place(50));
  editor.type(findings, "8");
  findings.expect(hasAllLetters(editor, letters, 2), "a click after shift+left is modified");
  editor.press(findings, selectAll(guest));
  editor.type(findings, "9");
  editor.expectText(findings, "9");
}

void worksWithThePointer(const Guest&, Findings& findings, Editor& editor) {
  if (!editor.write(findings, "abcdefghijkl mnop")) {
    return;
  }
  const Json frame = editor.text().value("frame", Json());
  if (!findings.expect(frame.is_object(), "the text has no frame")) {
    return;
  }
  const Json inWord = editor.place(20);
  const Json hit = editor.perform("ax_element_at", inWord);
  findings.expectEqual("what lies there", hit.value("node", Json::object()).value("role", ""),
                       "AXTextArea");
  Json twice = inWord;
  twice["count"] = 2;
  editor.click(findings, twice);
  editor.type(findings, "7");
  if (!editor.expectText(findings, "7 mnop")) {
    return;
  }
  const Json drag{{"fromX", frame.value("x", 0) + frame.value("w", 0) - 20},
                  {"fromY", inWord["y"]},
                  {"toX", frame.value("x", 0) + 1},
                  {"toY", inWord["y"]}};
  findings.expectEqual("drag", editor.perform("drag", drag), success);
  editor.type(findings, "8");
  editor.expectText(findings, "8");
}

void showsWhatChanged(const Guest& guest, Findings& findings, Editor& editor) {
  if (!needs(guest, findings, Grant::screenRecording) || !editor.write(findings, "")) {
    return;
  }
  const Json before = editor.perform("screenshot");
  editor.write(findings, "Something to be seen");
  Json after;
  const bool changed = eventually([&] {
    after = editor.perform("screenshot");
    return after.value("image", "") != before.value("image", "");
  });
  const std::string fault = pictureFault(after);
  findings.expect(fault.empty(), fault);
  findings.expect(changed, "the picture is the same before and after");
}

/// Puts the caret where the pointer clicks, and tells which line that was in: that of a letter
/// which is typed there and taken back.
std::size_t clickedLine(Editor& editor, const Json& place) {
  std::string text;
  const auto hasLetter = [&] {
    return (text = editor.text().value("value", "")).find('Z') != text.npos;
  };
  editor.perform("click", place);
  editor.perform("type", {{"text", "Z"}});
  eventually(hasLetter);
  const auto end =
      text.begin() + static_cast<std::ptrdiff_t>(std::min(text.find('Z'), text.size()));
  const auto line = static_cast<std::size_t>(std::count(text.begin(), end, '\n'));
  editor.perform("key", {{"chord", "delete"}});
  eventually([&] { return !hasLetter(); });
  return line;
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
  const Json place = editor.place(30, 60);
  const auto scroll = [&](int by) {
    findings.expectEqual("scroll", editor.perform("scroll", {{"dy", by}}), success);
  };
  std::size_t top = 0;
  std::size_t below = 0;
  const bool scrolled = eventually([&] {
    // Editors differ in which end of the text they show at first.
    for (int i = 0; i < 3; ++i) {
      scroll(40);
    }
    top = clickedLine(editor, place);
    scroll(-10);
    below = clickedLine(editor, place);
    return below > top;
  });
  findings.expect(scrolled, "a negative amount goes down, but line " + std::to_string(top) +
                                " became line " + std::to_string(below));
}

void followsTheFront(const Guest& guest, Findings& findings, Editor& editor) {
  Application other(guest, guest.applications().other);
  if (!findings.expect(editor.application().isInFront(), "the editor is not in front at first") ||
      !other.launch(findings)) {
    return;
  }
  findings.note(other.name());
  findings.expect(!editor.application().isInFront(), "a dump takes the editor for " + other.name());
  findings.expect(other.end(), other.name() + " does not end when it is killed");
  // Systems differ in what comes to the front then, so do as a person would.
  editor.click(findings, editor.place(20));
  findings.expect(eventually([&] { return editor.application().isInFront(); }),
                  "a dump does not show the editor, which is in front again");
}

void leavesNothing(const Guest& guest, Findings& findings, Editor& editor) {
  const std::int64_t pid = editor.application().pid();
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
    if (needs(guest, findings, Grant::accessibility) &&
        needs(guest, findings, Grant::inputSynthesis)) {
      *editor = std::make_unique<Editor>(guest);
      (*editor)->open(findings);
    }
  };
  // Without commands it could not be ended.
  std::vector<Check> checks{
      whereCommandsRun({"desktop", "an editor is launched and comes to the front", opens})};
  const auto add = [&](const char* what, EditorCheck run) {
    checks.push_back({"desktop", what, [editor, run](const Guest& guest, Findings& findings) {
                        if (*editor && (*editor)->isOpen()) {
                          run(guest, findings, **editor);
                        } else {
                          findings.skip("there is no editor");
                        }
                      }});
  };
  add("its tree is well formed, however deep it is asked for",
      [](const Guest& guest, Findings& findings, Editor&) { checkFrontmostTree(guest, findings); });
  add("its text takes the focus", focuses);
  add("typed accents, scripts and an emoji arrive", types);
  add("values written to its text are there", setsValues);
  add("a value of more than 250 characters is cut", cutsLongValues);
  add("chords and keys are pressed", pressesChords);
  add("typing and clicking after a chord is not modified", forgetsModifiers);
  add("double-click and drag select", worksWithThePointer);
  add("the wheel scrolls", turnsTheWheel);
  add("the picture changes with the text", showsWhatChanged);
  add("a dump follows the front to another application and back", followsTheFront);
  add("once it is ended, nothing of it is left", leavesNothing);
  return checks;
}

}  // namespace tervain::ctl::conform
