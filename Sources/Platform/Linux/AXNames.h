#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Linux/Elements.h"

/// What the roles, states and actions of AT-SPI are called on macOS.
namespace tervain::AXNames {

/// The roles that something here asks for, by their numbers in AT-SPI.
enum Role : std::uint32_t {
  checkBox = 7,
  comboBox = 11,
  filler = 20,
  frame = 23,
  label = 29,
  layeredPane = 30,
  list = 31,
  listItem = 32,
  menu = 33,
  menuBar = 34,
  menuItem = 35,
  pageTab = 37,
  pageTabList = 38,
  panel = 39,
  passwordText = 40,
  pushButton = 43,
  scrollBar = 48,
  scrollPane = 49,
  slider = 51,
  spinButton = 52,
  splitPane = 53,
  table = 55,
  tableCell = 56,
  text = 61,
  tree = 65,
  treeTable = 66,
  viewport = 68,
  application = 75,
  autocomplete = 76,
  editbar = 77,
  entry = 79,
  staticText = 116,
};

/// States by their bit in the 64 bits that an element reports.
enum class State {
  checked = 4,
  editable = 7,
  enabled = 8,
  focusable = 11,
  focused = 12,
  multiLine = 17,
  selected = 23,
  sensitive = 24,
  showing = 25,
  visible = 30,
  managesDescendants = 31,
  indeterminate = 32,
  checkable = 41,
};

inline bool has(std::uint64_t states, State state) {
  return (states >> static_cast<unsigned>(state) & 1U) != 0;
}

/// What the name of an element's role depends on.
struct Kind {
  std::uint32_t role = 0;
  std::string roleName{};  ///< read only where `needsRoleName`
  std::uint64_t states = 0;
  std::uint32_t parentRole = 0;  ///< read only where `needsParent`
  bool hasChildren = false;
  bool hasEntry = false;  ///< whether a combo box has a text field
};

struct Names {
  std::string_view role;
  std::string_view subrole;  ///< empty for none
};

Names namesOf(const Kind& kind);

/// Whether the number of a role says too little without its text.
bool needsRoleName(std::uint32_t role, Toolkit toolkit);

/// Whether the role depends on what the element is in.
bool needsParent(std::uint32_t role);

/// Whether the role is one of those that menus are made of.
bool isMenuItem(std::uint32_t role);

/// Whether the role is one of a text field for a line of text.
bool isEntry(std::uint32_t role);

/// Whether a toolkit gives as the name what macOS gives as the value.
bool showsItsName(std::uint32_t role);

/// Whether an element of this role only shows something or holds others. Newer toolkits list
/// actions of their own making even for those.
bool isPassive(std::uint32_t role);

/// Whether an element of this role shows of what is in it only what lies within its own frame.
/// Menus and boxes that pop something up don't.
bool clips(std::uint32_t role);

/// Whether what is in an element of this role is mostly cells.
bool holdsCells(std::uint32_t role);

/// Whether an element of this role lets its user choose a number.
bool isAdjustable(std::uint32_t role);

/// Whether an element of this role has a state of being checked.
bool isCheckable(const Kind& kind);

/// The macOS name of a toolkit's action, or the toolkit's own where there is none. Nothing for
/// actions that are no user's business.
std::optional<std::string> actionName(std::string_view action, std::uint32_t role);

/// The name of an element as its title: without trailing blanks, and without what GTK 4 calls
/// widgets that have no name.
std::string title(std::string_view name, Toolkit toolkit);

}  // namespace tervain::AXNames
