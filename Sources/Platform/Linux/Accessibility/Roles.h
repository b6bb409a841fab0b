#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Linux/Accessibility/Applications.h"
#include "Platform/Linux/Accessibility/Atspi.h"

/// What the roles and actions of AT-SPI are called on macOS, and what a role tells of an element.
namespace tervain::Linux::Roles {

using Atspi::Role;

/// What the macOS name of an element's role depends on.
struct Kind {
  Role role = Role::invalid;
  std::string roleName{};  ///< as the toolkit writes it in English; read where `needsRoleName`
  Atspi::States states{};
  Role parentRole = Role::invalid;  ///< read where `needsParent`
  bool hasChildren = false;
  bool hasTextField = false;  ///< whether a combo box can be typed into
};

/// A macOS role, such as "AXButton", and subrole.
struct Names {
  std::string_view role;
  std::string_view subrole;  ///< empty for none
};

Names namesOf(const Kind& kind);

/// Whether a toolkit uses the role for several kinds of elements, which only the role's name tells
/// apart.
bool needsRoleName(Role role, Toolkit toolkit);

/// Whether the macOS name of the role depends on the role of the element's parent.
bool needsParent(Role role);

/// Whether it is an entry of a menu or of a menu bar, one that opens a menu of its own included.
bool isMenuItem(Role role);

/// Whether it is a text field, or may be a text area.
bool isTextField(Role role);

/// Whether toolkits give such an element's text as its name, where macOS has it as the value.
bool showsItsName(Role role);

/// Whether such an element only shows something or holds others, and has no actions. Newer toolkits
/// list some of their own making even for these.
bool isPassive(Role role);

/// Whether such an element cuts off what is in it at its own edges. Menus don't, nor does what
/// pops something up.
bool clips(Role role);

/// Whether most of what is in such an element is cells.
bool holdsCells(Role role);

/// Whether macOS has rows between such an element and the cells in it.
bool hasRows(Role role);

/// Whether it heads a row.
bool isRowHeader(Role role);

/// Whether its user sets a number with such an element, as with a slider.
bool isAdjustable(Role role);

/// Whether what an element says in words is all there is to it, as with a label, a field or a cell.
/// What other elements say repeats their names, or what is in them.
bool isMadeOfText(const Kind& kind);

/// Whether a number that an element gives is one that its user sees.
bool showsANumber(const Kind& kind);

/// Whether an element is on or off, as a check box is.
bool isCheckable(const Kind& kind);

/// The macOS name of what a toolkit calls an action, or the toolkit's own where macOS has none.
/// Nothing for actions that are not meant for users.
std::optional<std::string> actionName(std::string_view action, Role role, Toolkit toolkit);

/// Whether GTK 4 lists an action with every widget because a menu of the widget's has it.
bool isOfMenus(std::string_view action);

/// An element's title, made of its name: without trailing blanks, and empty where GTK 4 gives the
/// name of a class to a widget that has none.
std::string title(std::string_view name, Role role, Toolkit toolkit);

}  // namespace tervain::Linux::Roles
