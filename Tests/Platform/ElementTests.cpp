// What is made of an application's answers that GTK and Qt do not give in a test's surroundings.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <span>

#include "Platform/Linux/Accessibility/Placement.h"
#include "Platform/Linux/Accessibility/SnapshotReader.h"
#include "Support/BusServer.h"

namespace tervain::Linux {
namespace {

using AccessibilityBus::Connection;
using Atspi::Role;
using Atspi::State;

/// What an object answers, by the name of the method or property; `numbers` are its arguments.
using Answers = std::map<std::string, std::function<void(sd_bus_message*, std::span<const int>)>>;

template <class... Values>
auto say(const char* types, Values... values) {
  return [=](sd_bus_message* answer, std::span<const int>) {
    sd_bus_message_append(answer, types, values...);
  };
}

/// An object that shows, with a place of its own.
Answers element(Role role, const char* interface, std::initializer_list<State> states = {}) {
  std::uint64_t bits = 1ULL << 24U | 1ULL << 25U | 1ULL << 30U;  // sensitive, showing, visible
  for (const State state : states) {
    bits |= 1ULL << static_cast<unsigned>(state);
  }
  return {{"GetState",
           say("au", 2, static_cast<std::uint32_t>(bits), static_cast<std::uint32_t>(bits >> 32U))},
          {"GetRole", say("u", static_cast<std::uint32_t>(role))},
          {"GetInterfaces", say("as", 1, interface)},
          {"GetExtents", say("(iiii)", 100, 100, 40, 20)},
          {"Name", say("v", "s", "Save")},
          {"ChildCount", say("v", "i", 0)},
          {"GetChildren", say("a(so)", 0)}};
}

class Application {
 public:
  explicit Application(std::map<std::string, Answers> objects) : objects_(std::move(objects)) {}

  Snapshot read(Toolkit toolkit, std::optional<TableRow> row = {}) {
    const Platform::AXElement::Handle element{{"a.b", "/x"}, 1, toolkit, test::patience, "/w", row};
    return readSnapshotNow(*connection_, element, {.maxChildren = 48, .parentRole = {}}).value;
  }

  /// The same in GTK 4, after the application was asked about all its elements.
  SnapshotReply readKnown() {
    Learned learned;
    learned.items =
        connection_->askNow(Atspi::getItems(*connection_, {"a.b", "/"}), test::patience).value;
    const Platform::AXElement::Handle element{
        {"a.b", "/x"}, 1, Toolkit::gtk4, test::patience, "/w"};
    return readSnapshotNow(
        *connection_, element,
        {.maxChildren = 48, .parentRole = {}, .atOnce = false, .learned = &learned});
  }

 private:
  static int answer(sd_bus_message* question, void* objects, sd_bus_error* /*error*/) {
    std::string name = sd_bus_message_get_member(question);
    int numbers[3] = {};
    if (const char* property = nullptr; name == "Get") {
      sd_bus_message_read(question, "ss", nullptr, &property);
      name = property;
    } else {
      for (int& number : numbers) {
        sd_bus_message_read_basic(question, 'i', &number);
      }
    }
    const auto& all = *static_cast<std::map<std::string, Answers>*>(objects);
    const auto object = all.find(sd_bus_message_get_path(question));
    const auto& answers = (object == all.end() ? all.begin() : object)->second;
    const auto found = answers.find(name);
    if (found == answers.end()) {
      return sd_bus_reply_method_errorf(question, SD_BUS_ERROR_UNKNOWN_METHOD, "none");
    }
    sd_bus_message* made = nullptr;
    sd_bus_message_new_method_return(question, &made);
    const AccessibilityBus::Message owner(made);
    found->second(made, numbers);
    return sd_bus_send(nullptr, made, nullptr) < 0 ? -1 : 1;
  }

  std::map<std::string, Answers> objects_;
  test::BusApplication application_{answer, &objects_};
  std::unique_ptr<Connection> connection_ = application_.connect();
};

TEST(Elements, ActionsHaveTheNamesThatNobodyTranslates) {
  static constexpr const char* names[] = {"press", "showContextMenu", "", "clickAncestor"};
  Answers button = element(Role::pushButton, "org.a11y.atspi.Action");
  button["NActions"] = say("v", "i", 4);
  button["GetActions"] = say("a(sss)", 2, "Drücken", "", "", "clipboard.copy", "", "");
  button["GetName"] = [](sd_bus_message* answer, std::span<const int> numbers) {
    sd_bus_message_append(answer, "s", names[numbers[0]]);
  };
  const std::vector<std::string> all{"AXPress", "AXShowMenu", "clickAncestor"};
  EXPECT_EQ(Application({{"/x", button}}).read(Toolkit::gecko).actionNames(), all);
  EXPECT_EQ(Application({{"/x", button}}).read(Toolkit::gtk4).actionNames(),
            std::vector<std::string>{"AXPress"});
  Answers label = element(Role::label, "org.a11y.atspi.Action");
  label["GetActions"] = say("a(sss)", 1, "menu.popup", "", "");
  EXPECT_TRUE(Application({{"/x", label}}).read(Toolkit::gtk4).actionNames().empty());
}

TEST(Elements, WhatIsKnownOfAllIsNotAskedAgainUnlessTheyHaveGone) {
  Answers button{{"GetExtents", say("(iiii)", 100, 100, 40, 20)}};
  const auto items = say("a((so)(so)(so)iiassusau)", 1, "a.b", "/x", "a.b", "/", "a.b", "/", 0, 0,
                         2, "org.a11y.atspi.Component", "org.a11y.atspi.Text", "Save",
                         static_cast<std::uint32_t>(Role::pushButton), "", 2,
                         1U << static_cast<unsigned>(State::showing), 0U);
  button["GetItems"] = items;
  const SnapshotReply known = Application({{"/x", button}}).readKnown();
  EXPECT_TRUE(known && known.value.shows() && known.value.extents);
  EXPECT_EQ(known.value.kind.role, Role::pushButton);
  EXPECT_EQ(known.value.name, "Save");
  EXPECT_TRUE(known.value.interfaces.has(Atspi::Interface::text));
  EXPECT_FALSE(Application({{"/x", {{"GetItems", items}}}}).readKnown());
}

TEST(Elements, ValuesAreWhatTheirUserReads) {
  const std::string wide(4096, 'x');
  const std::tuple<Role, Toolkit, std::string, std::optional<std::string>> cases[] = {
      {Role::section, Toolkit::chromium, "\uFFFC \uFFFC", std::nullopt},
      {Role::paragraph, Toolkit::chromium, "see \uFFFCthere", "see there"},
      {Role::pushButton, Toolkit::chromium, "Save", std::nullopt},
      {Role::entry, Toolkit::gecko, "👋\uFEFF \uFEFFa", "👋 \uFEFFa"},
      {Role::entry, Toolkit::qt, wide, wide},
      {Role::entry, Toolkit::gtk3, wide + "y", wide + "y…"},
      {Role::tableCell, Toolkit::gtk3, "", std::nullopt}};
  for (const auto& [role, toolkit, text, value] : cases) {
    Answers field = element(role, "org.a11y.atspi.Text");
    field["CharacterCount"] = say("v", "i", static_cast<int>(countCharacters(text)));
    field["GetText"] = say("s", text.c_str());
    field["CurrentValue"] = say("v", "d", 0.0);
    const auto shown = Application({{"/x", field}}).read(toolkit).value();
    EXPECT_EQ(shown ? std::optional(std::get<std::string>(*shown)) : std::nullopt, value) << text;
  }
}

constexpr int columns = 1000;

/// A table of cells of 30 by 20 pixels, scrolled to the fifth row.
std::map<std::string, Answers> longTable() {
  Answers table = element(Role::table, "org.a11y.atspi.Table", {State::managesDescendants});
  table["GetExtents"] = say("(iiii)", 0, 0, 300, 200);
  table["ChildCount"] = say("v", "i", INT_MAX);
  table["NRows"] = say("v", "i", 1'000'000);
  table["NColumns"] = say("v", "i", columns);
  table["GetAccessibleAtPoint"] = [](sd_bus_message* answer, std::span<const int> at) {
    const std::string path = "/cell" + std::to_string((at[1] / 20 + 4) * columns + at[0] / 30);
    sd_bus_message_append(answer, "(so)", "a.b", path.c_str());
  };
  table["GetAccessibleAt"] = [](sd_bus_message* answer, std::span<const int> at) {
    const std::string path = "/cell" + std::to_string(at[0] * columns + at[1]);
    sd_bus_message_append(answer, "(so)", "a.b", path.c_str());
  };
  std::map<std::string, Answers> objects{{"/x", table}};
  for (int cell = 4 * columns; cell < 15 * columns; ++cell) {
    const int x = cell % columns * 30;
    const int y = (cell / columns - 4) * 20;
    objects["/cell" + std::to_string(cell)] = {{"GetIndexInParent", say("i", cell)},
                                               {"GetExtents", say("(iiii)", x, y, 30, 20)}};
  }
  objects["/x"]["GetRowAtIndex"] = [](sd_bus_message* answer, std::span<const int> index) {
    sd_bus_message_append(answer, "i", index[0] / columns);
  };
  objects["/x"]["GetColumnAtIndex"] = [](sd_bus_message* answer, std::span<const int> index) {
    sd_bus_message_append(answer, "i", index[0] % columns);
  };
  return objects;
}

TEST(Elements, ATableThatManagesItsDescendantsHasRowsOfTheCellsThatShow) {
  Application application(longTable());
  const Snapshot read = application.read(Toolkit::other);
  EXPECT_EQ(read.childCount, 1'000'000U);
  ASSERT_EQ(read.children.size(), 10U);
  const Snapshot row = application.read(Toolkit::other, read.children[1].row);
  EXPECT_EQ(Roles::namesOf(row.kind).role, "AXRow");
  EXPECT_TRUE(row.shows());
  EXPECT_EQ(row.childCount, std::size_t{columns});
  ASSERT_EQ(row.children.size(), 10U);
  EXPECT_EQ(row.children[2].object.path, "/cell5002");
  EXPECT_EQ(row.extents.value_or(Atspi::Extents{}).y, 20);
  EXPECT_EQ(row.extents.value_or(Atspi::Extents{}).width, 300);
}

TEST(Placement, LeavesTheShadowOfAWindowOut) {
  Snapshot toplevel;
  toplevel.toolkit = Toolkit::gtk4;
  toplevel.extents = Atspi::Extents{0, 0, 100, 50};
  X11::Window window;
  window.place = {10, 20, 260, 150};
  window.shadow = {.left = 20, .right = 40, .top = 30, .bottom = 20};
  const auto placement = placementOf(toplevel, &window);
  ASSERT_TRUE(placement);
  EXPECT_EQ(placement->scale, 2);
  EXPECT_EQ(placement->origin.x, 30);
  EXPECT_EQ(placement->origin.y, 50);
}

}  // namespace
}  // namespace tervain::Linux
