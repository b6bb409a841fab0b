#include "Platform/Linux/Accessibility/Roles.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <iterator>
#include <type_traits>

namespace tervain::Linux::Roles {

using Atspi::State;

namespace {

struct Row {
  Role role = Role::invalid;
  Names names;
};

/// In the order of AT-SPI's numbers. What is missing is a group or unknown.
constexpr Row rows[] = {
    {Role::alert, {"AXWindow", "AXDialog"}},
    {Role::animation, {"AXImage", ""}},
    {Role::checkBox, {"AXCheckBox", ""}},
    {Role::checkMenuItem, {"AXMenuItem", ""}},
    {Role::colorChooser, {"AXWindow", "AXDialog"}},
    {Role::columnHeader, {"AXButton", "AXSortButton"}},
    {Role::comboBox, {"AXPopUpButton", ""}},
    {Role::dial, {"AXSlider", ""}},
    {Role::dialog, {"AXWindow", "AXDialog"}},
    {Role::fileChooser, {"AXWindow", "AXDialog"}},
    {Role::filler, {"AXGroup", ""}},
    {Role::fontChooser, {"AXWindow", "AXDialog"}},
    {Role::frame, {"AXWindow", "AXStandardWindow"}},
    {Role::icon, {"AXImage", ""}},
    {Role::image, {"AXImage", ""}},
    {Role::internalFrame, {"AXWindow", ""}},
    {Role::label, {"AXStaticText", ""}},
    {Role::layeredPane, {"AXGroup", ""}},
    {Role::list, {"AXList", ""}},
    {Role::listItem, {"AXGroup", ""}},
    {Role::menu, {"AXMenu", ""}},
    {Role::menuBar, {"AXMenuBar", ""}},
    {Role::menuItem, {"AXMenuItem", ""}},
    {Role::pageTab, {"AXRadioButton", "AXTabButton"}},
    {Role::pageTabList, {"AXTabGroup", ""}},
    {Role::panel, {"AXGroup", ""}},
    {Role::passwordText, {"AXTextField", "AXSecureTextField"}},
    {Role::popupMenu, {"AXMenu", ""}},
    {Role::progressBar, {"AXProgressIndicator", ""}},
    {Role::pushButton, {"AXButton", ""}},
    {Role::radioButton, {"AXRadioButton", ""}},
    {Role::radioMenuItem, {"AXMenuItem", ""}},
    {Role::rowHeader, {"AXButton", ""}},
    {Role::scrollBar, {"AXScrollBar", ""}},
    {Role::scrollPane, {"AXScrollArea", ""}},
    {Role::separator, {"AXSplitter", ""}},
    {Role::slider, {"AXSlider", ""}},
    {Role::spinButton, {"AXIncrementor", ""}},
    {Role::splitPane, {"AXSplitGroup", ""}},
    {Role::statusBar, {"AXGroup", ""}},
    {Role::table, {"AXTable", ""}},
    {Role::tableCell, {"AXCell", ""}},
    {Role::tableColumnHeader, {"AXButton", "AXSortButton"}},
    {Role::tableRowHeader, {"AXButton", ""}},
    {Role::tearoffMenuItem, {"AXMenuItem", ""}},
    {Role::terminal, {"AXTextArea", ""}},
    {Role::text, {"AXTextField", ""}},
    {Role::toggleButton, {"AXCheckBox", "AXToggle"}},
    {Role::toolBar, {"AXToolbar", ""}},
    {Role::toolTip, {"AXHelpTag", ""}},
    {Role::tree, {"AXOutline", ""}},
    {Role::treeTable, {"AXOutline", ""}},
    {Role::viewport, {"AXScrollArea", ""}},
    {Role::window, {"AXWindow", ""}},
    {Role::paragraph, {"AXStaticText", ""}},
    {Role::ruler, {"AXRuler", ""}},
    {Role::application, {"AXApplication", ""}},
    {Role::autocomplete, {"AXTextField", ""}},
    {Role::editbar, {"AXTextField", ""}},
    {Role::entry, {"AXTextField", ""}},
    {Role::caption, {"AXStaticText", ""}},
    {Role::documentFrame, {"AXWebArea", ""}},
    {Role::heading, {"AXHeading", ""}},
    {Role::section, {"AXGroup", ""}},
    {Role::form, {"AXGroup", ""}},
    {Role::link, {"AXLink", ""}},
    {Role::tableRow, {"AXRow", ""}},
    {Role::treeItem, {"AXRow", "AXOutlineRow"}},
    {Role::documentSpreadsheet, {"AXTable", ""}},
    {Role::documentText, {"AXTextArea", ""}},
    {Role::documentWeb, {"AXWebArea", ""}},
    {Role::listBox, {"AXList", ""}},
    {Role::grouping, {"AXGroup", ""}},
    {Role::levelBar, {"AXLevelIndicator", ""}},
    {Role::landmark, {"AXGroup", ""}},
    {Role::rating, {"AXLevelIndicator", ""}},
    {Role::staticText, {"AXStaticText", ""}},
    {Role::pushButtonMenu, {"AXMenuButton", ""}},
};

static_assert(std::adjacent_find(std::begin(rows), std::end(rows),
                                 [](const Row& row, const Row& next) {
                                   return row.role >= next.role;
                                 }) == std::end(rows),
              "find() needs the rows in order, and one for a role");

const Row* find(Role role) {
  const auto* const found =
      std::lower_bound(std::begin(rows), std::end(rows), role,
                       [](const Row& row, Role wanted) { return row.role < wanted; });
  return found != std::end(rows) && found->role == role ? found : nullptr;
}

template <class T>
bool isOneOf(T value, std::initializer_list<std::type_identity_t<T>> values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

/// Whether it is a part of a page that its user may write in as in a text field.
bool isEditable(const Kind& kind) {
  return kind.states.has(State::editable) && kind.states.has(State::focusable) &&
         isOneOf(kind.role, {Role::section, Role::paragraph, Role::documentText});
}

bool isMenuBarItem(const Kind& kind) {
  return kind.parentRole == Role::menuBar && isMenuItem(kind.role);
}

/// Names that the name of a role decides.
std::optional<Names> namesByText(const Kind& kind) {
  if (kind.role == Role::pushButton && kind.roleName == "button menu") {
    return Names{"AXMenuButton", ""};
  }
  if (kind.role == Role::checkBox && kind.roleName == "switch") {
    return Names{"AXCheckBox", "AXSwitch"};
  }
  if (kind.role == Role::tableCell && kind.roleName == "tree item") {
    return Names{"AXRow", "AXOutlineRow"};
  }
  if (isTextField(kind.role) && kind.roleName == "search box") {
    return Names{"AXTextField", "AXSearchField"};
  }
  return std::nullopt;
}

/// Names that the place of an element decides.
std::optional<Names> namesByPlace(const Kind& kind) {
  if (isMenuBarItem(kind)) {
    return Names{"AXMenuBarItem", ""};
  }
  if (kind.role == Role::tableRow && kind.parentRole == Role::treeTable) {
    return Names{"AXRow", "AXOutlineRow"};
  }
  if (kind.role == Role::listItem &&
      isOneOf(kind.parentRole, {Role::table, Role::tree, Role::treeTable})) {
    return Names{"AXRow", ""};
  }
  // Qt calls a window that is a plain widget after what it is laid out as.
  if ((kind.role == Role::filler || kind.role == Role::panel) &&
      kind.parentRole == Role::application) {
    return Names{"AXWindow", "AXStandardWindow"};
  }
  // And what lies inside a window calls itself one as well, as do frames and messages in a page.
  if (isOneOf(kind.role, {Role::frame, Role::internalFrame, Role::alert}) &&
      !isOneOf(kind.parentRole, {Role::application, Role::layeredPane, Role::invalid})) {
    return Names{"AXGroup", ""};
  }
  return std::nullopt;
}

bool equalsWithoutCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
  });
}

/// Whether it is the name of a class of GTK, such as GtkEntry; or, for an element that mostly has
/// no name of its own, looks like that of an application's class, such as EditorPage.
bool isClassName(std::string_view name, Role role) {
  constexpr std::string_view prefix = "Gtk";
  const auto isUpper = [](unsigned char c) { return std::isupper(c) != 0; };
  const bool isOfGtk = name.size() > prefix.size() && name.starts_with(prefix) &&
                       isUpper(static_cast<unsigned char>(name[prefix.size()]));
  const bool isMostlyUnnamed =
      isTextField(role) || isOneOf(namesOf({.role = role, .hasChildren = true}).role,
                                   {"AXGroup", "AXToolbar", "AXScrollArea", "AXList"});
  const bool isOfApplication = isMostlyUnnamed && !name.empty() &&
                               isUpper(static_cast<unsigned char>(name.front())) &&
                               std::count_if(name.begin(), name.end(), isUpper) > 1;
  return (isOfGtk || isOfApplication) && std::all_of(name.begin(), name.end(), [](unsigned char c) {
           return std::isalnum(c) != 0;
         });
}

}  // namespace

Names namesOf(const Kind& kind) {
  if (const auto names = namesByText(kind)) {
    return *names;
  }
  if (const auto names = namesByPlace(kind)) {
    return *names;
  }
  if (isEditable(kind) || ((kind.role == Role::text || kind.role == Role::entry) &&
                           kind.states.has(State::multiLine))) {
    return {"AXTextArea", ""};
  }
  if (kind.role == Role::comboBox && kind.hasTextField) {
    return {"AXComboBox", ""};
  }
  if (const Row* row = find(kind.role)) {
    return row->names;
  }
  return {kind.hasChildren ? "AXGroup" : "AXUnknown", ""};
}

bool needsRoleName(Role role, Toolkit toolkit) {
  switch (toolkit) {
    case Toolkit::qt:
      return isOneOf(role, {Role::pushButton, Role::tableCell});
    case Toolkit::gtk4:
      return isOneOf(role, {Role::checkBox, Role::entry});
    case Toolkit::gtk3:
    case Toolkit::gecko:
    case Toolkit::chromium:
    case Toolkit::other:
      break;
  }
  return false;
}

bool needsParent(Role role) {
  return isMenuItem(role) || isOneOf(role, {Role::listItem, Role::filler, Role::panel, Role::frame,
                                            Role::internalFrame, Role::alert});
}

bool isMenuItem(Role role) {
  return isOneOf(role, {Role::checkMenuItem, Role::menu, Role::menuItem, Role::radioMenuItem});
}

bool isRowHeader(Role role) {
  return isOneOf(role, {Role::rowHeader, Role::tableRowHeader});
}

bool isTextField(Role role) {
  return isOneOf(role,
                 {Role::text, Role::entry, Role::passwordText, Role::autocomplete, Role::editbar});
}

bool showsItsName(Role role) {
  return isOneOf(role, {Role::label, Role::staticText, Role::comboBox});
}

bool isPassive(Role role) {
  return isOneOf(role,
                 {Role::filler, Role::panel, Role::separator, Role::staticText, Role::application});
}

bool clips(Role role) {
  return isOneOf(role, {Role::filler, Role::frame, Role::layeredPane, Role::list, Role::panel,
                        Role::scrollPane, Role::splitPane, Role::table, Role::tree, Role::treeTable,
                        Role::viewport});
}

bool holdsCells(Role role) {
  return isOneOf(role, {Role::table, Role::tableCell, Role::tableRow, Role::tree, Role::treeTable});
}

bool hasRows(Role role) {
  return isOneOf(role, {Role::table, Role::treeTable});
}

bool isAdjustable(Role role) {
  return isOneOf(role,
                 {Role::slider, Role::spinButton, Role::scrollBar, Role::dial, Role::splitPane});
}

bool isMadeOfText(const Kind& kind) {
  return isTextField(kind.role) || isEditable(kind) ||
         isOneOf(kind.role, {Role::label, Role::comboBox, Role::tableCell, Role::terminal,
                             Role::paragraph, Role::caption, Role::heading, Role::staticText});
}

bool showsANumber(const Kind& kind) {
  return isAdjustable(kind.role) ||
         isOneOf(kind.role, {Role::progressBar, Role::levelBar, Role::rating}) ||
         !(kind.hasChildren || isPassive(kind.role) || isMadeOfText(kind));
}

bool isCheckable(const Kind& kind) {
  return kind.states.has(State::checkable) ||
         isOneOf(kind.role, {Role::checkBox, Role::checkMenuItem, Role::pageTab, Role::radioButton,
                             Role::radioMenuItem, Role::toggleButton});
}

std::optional<std::string> actionName(std::string_view action, Role role, Toolkit toolkit) {
  // Up to "showmenu" it is what browsers call that which a click does to some element.
  static constexpr struct {
    std::string_view name;
    std::string_view macName;
  } names[] = {
      {"click", "AXPress"},         {"press", "AXPress"},
      {"activate", "AXPress"},      {"toggle", "AXPress"},
      {"jump", "AXPress"},          {"doDefault", "AXPress"},
      {"open", "AXPress"},          {"close", "AXPress"},
      {"select", "AXPress"},        {"unselect", "AXPress"},
      {"check", "AXPress"},         {"uncheck", "AXPress"},
      {"switch", "AXPress"},        {"cycle", "AXPress"},
      {"showmenu", "AXShowMenu"},   {"showContextMenu", "AXShowMenu"},
      {"menu.popup", "AXShowMenu"}, {"increase", "AXIncrement"},
      {"decrease", "AXDecrement"},  {"increment", "AXIncrement"},
      {"decrement", "AXDecrement"},
  };
  // In browsers it only gives the field the focus.
  if (equalsWithoutCase(action, "activate") && !isBrowser(toolkit) &&
      (isTextField(role) || role == Role::spinButton)) {
    return "AXConfirm";
  }
  // Buttons that show more when they are pressed. A row of an outline does so on its own.
  if ((equalsWithoutCase(action, "expand") || equalsWithoutCase(action, "collapse")) &&
      isOneOf(role, {Role::pushButton, Role::pushButtonMenu, Role::toggleButton, Role::comboBox,
                     Role::menu, Role::menuItem, Role::link})) {
    return "AXPress";
  }
  // All that an entry of a menu can do in Qt when there is a menu below it.
  if (equalsWithoutCase(action, "showmenu") && isMenuItem(role)) {
    return "AXPress";
  }
  const auto* const found = std::find_if(
      std::begin(names), std::end(names),
      [action](const auto& candidate) { return equalsWithoutCase(candidate.name, action); });
  if (found != std::end(names)) {
    return std::string(found->macName);
  }
  // GTK 3 names what its cells with check boxes have from other cells by translated descriptions.
  if (toolkit == Toolkit::gtk3 && role == Role::tableCell && !action.empty() &&
      !(action.front() >= 'a' && action.front() <= 'z')) {
    return std::nullopt;
  }
  // Focusing has a request of its own.
  if (action.empty() || isOfMenus(action) || equalsWithoutCase(action, "SetFocus")) {
    return std::nullopt;
  }
  return std::string(action);
}

bool isOfMenus(std::string_view action) {
  return action != "menu.popup" && action.find('.') != std::string_view::npos;
}

std::string title(std::string_view name, Role role, Toolkit toolkit) {
  while (!name.empty() && std::isspace(static_cast<unsigned char>(name.back())) != 0) {
    name.remove_suffix(1);
  }
  if (toolkit == Toolkit::gtk4 && isClassName(name, role)) {
    return {};
  }
  return std::string(name);
}

}  // namespace tervain::Linux::Roles
