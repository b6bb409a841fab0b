#include "Platform/Linux/AXNames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>

namespace tervain::AXNames {
namespace {

struct Row {
  std::uint32_t role = 0;
  Names names;
};

/// In the order of the AT-SPI enumeration. What is missing is a group or unknown.
constexpr Row rows[] = {
    {2, {"AXWindow", "AXDialog"}},               // alert
    {3, {"AXImage", ""}},                        // animation
    {7, {"AXCheckBox", ""}},                     // check box
    {8, {"AXMenuItem", ""}},                     // check menu item
    {9, {"AXWindow", "AXDialog"}},               // color chooser
    {10, {"AXButton", "AXSortButton"}},          // column header
    {11, {"AXPopUpButton", ""}},                 // combo box
    {15, {"AXSlider", ""}},                      // dial
    {16, {"AXWindow", "AXDialog"}},              // dialog
    {19, {"AXWindow", "AXDialog"}},              // file chooser
    {20, {"AXGroup", ""}},                       // filler
    {22, {"AXWindow", "AXDialog"}},              // font chooser
    {23, {"AXWindow", "AXStandardWindow"}},      // frame
    {26, {"AXImage", ""}},                       // icon
    {27, {"AXImage", ""}},                       // image
    {28, {"AXWindow", ""}},                      // internal frame
    {29, {"AXStaticText", ""}},                  // label
    {30, {"AXGroup", ""}},                       // layered pane
    {31, {"AXList", ""}},                        // list
    {32, {"AXGroup", ""}},                       // list item
    {33, {"AXMenu", ""}},                        // menu
    {34, {"AXMenuBar", ""}},                     // menu bar
    {35, {"AXMenuItem", ""}},                    // menu item
    {37, {"AXRadioButton", "AXTabButton"}},      // page tab
    {38, {"AXTabGroup", ""}},                    // page tab list
    {39, {"AXGroup", ""}},                       // panel
    {40, {"AXTextField", "AXSecureTextField"}},  // password text
    {41, {"AXMenu", ""}},                        // popup menu
    {42, {"AXProgressIndicator", ""}},           // progress bar
    {43, {"AXButton", ""}},                      // push button
    {44, {"AXRadioButton", ""}},                 // radio button
    {45, {"AXMenuItem", ""}},                    // radio menu item
    {47, {"AXButton", ""}},                      // row header
    {48, {"AXScrollBar", ""}},                   // scroll bar
    {49, {"AXScrollArea", ""}},                  // scroll pane
    {50, {"AXSplitter", ""}},                    // separator
    {51, {"AXSlider", ""}},                      // slider
    {52, {"AXIncrementor", ""}},                 // spin button
    {53, {"AXSplitGroup", ""}},                  // split pane
    {54, {"AXGroup", ""}},                       // status bar
    {55, {"AXTable", ""}},                       // table
    {56, {"AXCell", ""}},                        // table cell
    {57, {"AXButton", "AXSortButton"}},          // table column header
    {58, {"AXButton", ""}},                      // table row header
    {59, {"AXMenuItem", ""}},                    // tearoff menu item
    {60, {"AXTextArea", ""}},                    // terminal
    {61, {"AXTextField", ""}},                   // text
    {62, {"AXCheckBox", "AXToggle"}},            // toggle button
    {63, {"AXToolbar", ""}},                     // tool bar
    {64, {"AXHelpTag", ""}},                     // tool tip
    {65, {"AXOutline", ""}},                     // tree
    {66, {"AXOutline", ""}},                     // tree table
    {68, {"AXScrollArea", ""}},                  // viewport
    {69, {"AXWindow", ""}},                      // window
    {73, {"AXStaticText", ""}},                  // paragraph
    {74, {"AXRuler", ""}},                       // ruler
    {75, {"AXApplication", ""}},                 // application
    {76, {"AXTextField", ""}},                   // autocomplete
    {77, {"AXTextField", ""}},                   // editbar
    {79, {"AXTextField", ""}},                   // entry
    {81, {"AXStaticText", ""}},                  // caption
    {82, {"AXWebArea", ""}},                     // document frame
    {83, {"AXHeading", ""}},                     // heading
    {85, {"AXGroup", ""}},                       // section
    {87, {"AXGroup", ""}},                       // form
    {88, {"AXLink", ""}},                        // link
    {90, {"AXRow", ""}},                         // table row
    {91, {"AXRow", "AXOutlineRow"}},             // tree item
    {92, {"AXTable", ""}},                       // document spreadsheet
    {94, {"AXTextArea", ""}},                    // document text
    {95, {"AXWebArea", ""}},                     // document web
    {98, {"AXList", ""}},                        // list box
    {99, {"AXGroup", ""}},                       // grouping
    {103, {"AXLevelIndicator", ""}},             // level bar
    {110, {"AXGroup", ""}},                      // landmark
    {114, {"AXLevelIndicator", ""}},             // rating
    {116, {"AXStaticText", ""}},                 // static
    {129, {"AXMenuButton", ""}},                 // push button menu
};

const Row* find(std::uint32_t role) {
  const auto* const found =
      std::lower_bound(std::begin(rows), std::end(rows), role,
                       [](const Row& row, std::uint32_t wanted) { return row.role < wanted; });
  return found != std::end(rows) && found->role == role ? found : nullptr;
}

template <std::size_t size>
bool isOneOf(std::uint32_t role, const std::array<std::uint32_t, size>& roles) {
  return std::find(roles.begin(), roles.end(), role) != roles.end();
}

constexpr std::array<std::uint32_t, 4> menuItems{8, 33, 35, 45};
constexpr std::array<std::uint32_t, 3> tables{55, 65, 66};

bool isMenuBarItem(const Kind& kind) {
  return kind.parentRole == menuBar && isMenuItem(kind.role);
}

/// Names that the text of a role decides.
std::optional<Names> namesByText(const Kind& kind) {
  if (kind.role == pushButton && kind.roleName == "button menu") {
    return Names{"AXMenuButton", ""};
  }
  if (kind.role == checkBox && kind.roleName == "switch") {
    return Names{"AXCheckBox", "AXSwitch"};
  }
  if (kind.role == tableCell && kind.roleName == "tree item") {
    return Names{"AXRow", "AXOutlineRow"};
  }
  if (isEntry(kind.role) && kind.roleName == "search box") {
    return Names{"AXTextField", "AXSearchField"};
  }
  return std::nullopt;
}

/// Names that the place of an element decides.
std::optional<Names> namesByPlace(const Kind& kind) {
  if (isMenuBarItem(kind)) {
    return Names{"AXMenuBarItem", ""};
  }
  if (kind.role == listItem && isOneOf(kind.parentRole, tables)) {
    return Names{"AXRow", ""};
  }
  // Qt calls a window that is a plain widget after what it is laid out as.
  if ((kind.role == filler || kind.role == panel) && kind.parentRole == application) {
    return Names{"AXWindow", "AXStandardWindow"};
  }
  // And what lies inside a window calls itself one as well.
  if (kind.role == frame && kind.parentRole != application && kind.parentRole != 0) {
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

/// Whether it is the name of a class of GTK, such as GtkEntry.
bool isClassName(std::string_view name) {
  constexpr std::string_view prefix = "Gtk";
  return name.size() > prefix.size() && name.starts_with(prefix) &&
         std::isupper(static_cast<unsigned char>(name[prefix.size()])) != 0 &&
         std::all_of(name.begin(), name.end(),
                     [](unsigned char c) { return std::isalnum(c) != 0; });
}

}  // namespace

Names namesOf(const Kind& kind) {
  if (const auto names = namesByText(kind)) {
    return *names;
  }
  if (const auto names = namesByPlace(kind)) {
    return *names;
  }
  if (kind.role == text && has(kind.states, State::multiLine)) {
    return {"AXTextArea", ""};
  }
  if (kind.role == comboBox && kind.hasEntry) {
    return {"AXComboBox", ""};
  }
  if (const Row* row = find(kind.role)) {
    return row->names;
  }
  return {kind.hasChildren ? "AXGroup" : "AXUnknown", ""};
}

bool needsRoleName(std::uint32_t role, Toolkit toolkit) {
  if (toolkit == Toolkit::qt) {
    return role == pushButton || role == tableCell;
  }
  return toolkit == Toolkit::gtk4 && (role == checkBox || role == entry);
}

bool isPassive(std::uint32_t role) {
  constexpr std::uint32_t separator = 50;
  return role == filler || role == panel || role == separator || role == staticText ||
         role == application;
}

bool needsParent(std::uint32_t role) {
  return isMenuItem(role) || role == listItem || role == filler || role == panel || role == frame;
}

bool isMenuItem(std::uint32_t role) {
  return isOneOf(role, menuItems);
}

bool isEntry(std::uint32_t role) {
  return role == text || role == entry || role == passwordText || role == autocomplete ||
         role == editbar;
}

bool showsItsName(std::uint32_t role) {
  return role == label || role == staticText || role == comboBox;
}

bool clips(std::uint32_t role) {
  constexpr std::array<std::uint32_t, 11> roles{filler, frame,      layeredPane, list,
                                                panel,  scrollPane, splitPane,   table,
                                                tree,   treeTable,  viewport};
  return isOneOf(role, roles);
}

bool holdsCells(std::uint32_t role) {
  constexpr std::array<std::uint32_t, 4> roles{table, tableCell, tree, treeTable};
  return isOneOf(role, roles);
}

bool isAdjustable(std::uint32_t role) {
  constexpr std::uint32_t dial = 15;
  return role == slider || role == spinButton || role == scrollBar || role == dial ||
         role == splitPane;
}

bool isCheckable(const Kind& kind) {
  constexpr std::array<std::uint32_t, 6> roles{7, 8, 37, 44, 45, 62};
  return isOneOf(kind.role, roles) || has(kind.states, State::checkable);
}

std::optional<std::string> actionName(std::string_view action, std::uint32_t role) {
  static constexpr struct {
    std::string_view name;
    std::string_view macName;
  } names[] = {
      {"click", "AXPress"},         {"press", "AXPress"},         {"activate", "AXPress"},
      {"toggle", "AXPress"},        {"jump", "AXPress"},          {"showmenu", "AXShowMenu"},
      {"menu.popup", "AXShowMenu"}, {"increase", "AXIncrement"},  {"decrease", "AXDecrement"},
      {"increment", "AXIncrement"}, {"decrement", "AXDecrement"},
  };
  if (equalsWithoutCase(action, "activate") && (isEntry(role) || role == spinButton)) {
    return "AXConfirm";
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
  // GTK 4 lists the actions of its menus with every widget, and focusing has a request of its own.
  if (action.empty() || action.find('.') != std::string_view::npos ||
      equalsWithoutCase(action, "SetFocus")) {
    return std::nullopt;
  }
  return std::string(action);
}

std::string title(std::string_view name, Toolkit toolkit) {
  while (!name.empty() && std::isspace(static_cast<unsigned char>(name.back())) != 0) {
    name.remove_suffix(1);
  }
  if (toolkit == Toolkit::gtk4 && isClassName(name)) {
    return {};
  }
  return std::string(name);
}

}  // namespace tervain::AXNames
