#include <gtest/gtest.h>

#include "VMAgentClient/Selector.h"
#include "VMAgentClient/TextPattern.h"

namespace tervain {
namespace {

TEST(TextPattern, FindsAPartWhateverItsCase) {
  const struct {
    std::string_view wanted;
    std::string_view text;
    bool fits;
    bool exactly;
  } cases[]{
      {"save", "Save As…", true, false},
      {"Save", "Save", true, true},
      {"ÄNDERN", "Größe ändern", true, false},
      {"strasse", "Straße", true, false},
      {"GROẞ", "groß", true, false},
      {"ΟΔΟΣ", "η οδός", false, false},  // an accent is a letter of its own
      {"ΟΔΌΣ", "η οδός", true, false},
      {"ВЫХОД", "Выход", true, false},
      {"kapı", "KAPI", true, false},
      {"iptal", "İPTAL", true, false},
      {"I\u0307", "ı", true, false},
      {"caf\u00e9", "Cafe\u0301", true, false},
      {"Cafe\u0301", "Caf\u00e9", true, true},
      {"cafe", "Cafe\u0301", false, false},
      {"e", "e\u0301e", true, false},
      {"하", "한글", false, false},
      {"\u1112\u1161\u11ab", "한", true, true},
      {"\u1fbc\u0301", "\u03ac\u0345", true, false},
      {"保存", "名前を付けて保存", true, false},
      {"👩‍🔬", "a 👩‍🔬 b", true, false},
      {"", "", true, true},
      {"x", "", false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TextPattern(c.wanted, false).fits(c.text), c.fits) << c.wanted << " in " << c.text;
    EXPECT_EQ(TextPattern(c.wanted, true).fits(c.text), c.exactly) << c.wanted << " = " << c.text;
  }
  EXPECT_THROW(TextPattern("\xff", false), std::invalid_argument);
}

ElementTree tree(const char* json, int depth = 25) {
  return treeOf(Json::parse(json), depth);
}

/// What choosing in a tree gives: a ref, or why there is none.
std::string chosen(const ElementTree& tree, const Selector& selector) {
  try {
    return choose(tree, selector).element.ref;
  } catch (const NotChosen& error) {
    return error.what();
  }
}

TEST(Selector, ChoosesTheOneElementThatFits) {
  const ElementTree window = tree(R"({"app":"Editor","tree":{"ref":"e1","role":"AXApplication",
    "children":[{"ref":"e2","role":"AXWindow","subrole":"AXDialog","title":"Speichern?","children":[
      {"ref":"e3","role":"AXButton","title":"Speichern"},
      {"ref":"e4","role":"AXButton","title":"Nicht speichern"},
      {"ref":"e5","role":"AXTextField","value":"Entwurf","title":7,"frame":{"x":1}}]}]}})");
  const struct {
    Selector selector;
    std::string_view outcome;
  } cases[]{
      {{.role = "field"}, "e5"},
      {{.role = "axdialog"}, "e2"},
      {{.role = "AXWindow/AXDialog", .exact = true}, "e2"},
      {{.title = "NICHT"}, "e4"},
      {{.title = "Speichern", .exact = true}, "e3"},
      {{.title = "", .value = "Entwurf", .exact = true}, "e5"},
      {{.role = "button", .title = "speichern"},
       "2 elements fit role \"button\", title \"speichern\", and nothing was done; say more of the "
       "one that is meant:\n  e3 AXButton \"Speichern\"\n  e4 AXButton \"Nicht speichern\""},
      {{.title = "Drucken"}, "no element fits title \"Drucken\", of 5 in Editor"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(chosen(window, c.selector), c.outcome);
  }
}

TEST(Selector, SaysWhatMayHideAnElement) {
  const std::string cut = "\"" + std::string(250, 'x') + "…\"";
  const std::pair<ElementTree, std::string_view> cases[]{
      {tree(R"({"tree":{"ref":"e1"},"truncated":true})"), "no more than 1 elements at once"},
      {tree(R"({"tree":{"ref":"e1","childrenOmitted":3}})"),
       "only the first children of 1 element"},
      {tree(R"({"tree":{"ref":"e1","children":[{"ref":"e2"}]}})", 1), "nothing below level 1"},
      {tree((R"({"tree":{"ref":"e1","value":)" + cut + "}}").c_str()),
       "only the first 250 characters of a value"},
  };
  for (const auto& [shown, words] : cases) {
    const std::string why = chosen(shown, {.value = "later"});
    EXPECT_NE(
        why.find("but it may be one that is not shown: the agent shows " + std::string(words)),
        why.npos)
        << why;
  }
}

TEST(Selector, SeesTheVisiblePartOfAFrame) {
  const ElementTree shown = tree(R"({"tree":{"ref":"e1","children":[
    {"ref":"e2","role":"AXWindow","frame":{"x":100,"y":100,"w":400,"h":300},"children":[
      {"ref":"e3","role":"AXScrollArea","frame":{"x":100,"y":150,"w":200,"h":900},"children":[
        {"ref":"e4","title":"row","frame":{"x":50,"y":380,"w":100,"h":40}},
        {"ref":"e5","title":"below","frame":{"x":100,"y":420,"w":100,"h":40}}]},
      {"ref":"e6","role":"AXMenu","title":"menu","frame":{"x":450,"y":380,"w":200,"h":200}},
      {"ref":"e7","title":"flat","frame":{"x":110,"y":110,"w":10,"h":0}},
      {"ref":"e8","title":"far","frame":{"x":9223372036854775807,"y":-9223372036854775808,
        "w":9223372036854775807,"h":9223372036854775807}}]}]}})");
  const auto visible = [&](const char* title) { return choose(shown, {.title = title}).visible; };
  EXPECT_EQ(visible("row"), (Frame{100, 380, 50, 20}));
  EXPECT_EQ(middleOf(*visible("row")), (ScreenPoint{125, 390}));
  EXPECT_EQ(visible("menu"), (Frame{450, 380, 200, 200}));
  for (const char* unseen : {"below", "flat", "far"}) {
    EXPECT_EQ(visible(unseen), std::nullopt) << unseen;
  }
}

}  // namespace
}  // namespace tervain
