// What AT-SPI's roles and actions are called.

#include <gtest/gtest.h>

#include "Platform/Linux/Accessibility/Roles.h"

namespace tervain::Linux::Roles {
namespace {

using enum Atspi::Role;

std::string namesFor(const Kind& kind) {
  const Names names = namesOf(kind);
  return std::string(names.role) + "/" + std::string(names.subrole);
}

TEST(Roles, WhatTheNumberLeavesOpenIsToldByTheRest) {
  const Atspi::States multiLine(std::uint64_t{1} << 17U);
  const std::pair<Kind, const char*> cases[] = {
      {{.role = Role{40}}, "AXTextField/AXSecureTextField"},
      {{.role = Role{129}}, "AXMenuButton/"},
      {{.role = Role{1000}, .hasChildren = true}, "AXGroup/"},
      {{.role = text, .states = multiLine}, "AXTextArea/"},
      {{.role = entry, .roleName = "search box"}, "AXTextField/AXSearchField"},
      {{.role = checkBox, .roleName = "switch"}, "AXCheckBox/AXSwitch"},
      {{.role = pushButton, .roleName = "button menu"}, "AXMenuButton/"},
      {{.role = tableCell, .roleName = "tree item"}, "AXRow/AXOutlineRow"},
      {{.role = menu, .parentRole = menuBar}, "AXMenuBarItem/"},
      {{.role = listItem}, "AXGroup/"},
      {{.role = listItem, .parentRole = tree}, "AXRow/"},
      {{.role = filler, .parentRole = application}, "AXWindow/AXStandardWindow"},
      {{.role = filler, .parentRole = panel}, "AXGroup/"},
      {{.role = frame, .parentRole = frame}, "AXGroup/"},
      {{.role = frame, .parentRole = layeredPane}, "AXWindow/AXStandardWindow"},
      {{.role = section, .states = {Atspi::State::editable, Atspi::State::focusable}},
       "AXTextArea/"},
      {{.role = comboBox}, "AXPopUpButton/"},
      {{.role = comboBox, .hasTextField = true}, "AXComboBox/"}};
  for (const auto& [kind, names] : cases) {
    EXPECT_EQ(namesFor(kind), names) << static_cast<int>(kind.role) << " " << kind.roleName;
  }
}

TEST(Roles, ActionsAreWhatAUserCanDo) {
  const std::tuple<const char*, Role, Toolkit, std::optional<std::string>> cases[] = {
      {"Click", pushButton, Toolkit::qt, "AXPress"},
      {"Activate", menuItem, Toolkit::gtk3, "AXPress"},
      {"Activate", entry, Toolkit::gtk3, "AXConfirm"},
      {"activate", entry, Toolkit::gecko, "AXPress"},
      {"doDefault", heading, Toolkit::chromium, "AXPress"},
      {"expand", pushButton, Toolkit::gecko, "AXPress"},
      {"expand", treeItem, Toolkit::gecko, "expand"},
      {"menu.popup", label, Toolkit::gtk4, "AXShowMenu"},
      {"Increase", slider, Toolkit::qt, "AXIncrement"},
      {"expand or contract", tableCell, Toolkit::gtk3, "expand or contract"},
      {"Activates the cell", tableCell, Toolkit::gtk3, std::nullopt},
      {"clipboard.copy", label, Toolkit::gtk4, std::nullopt},
      {"", pushButton, Toolkit::chromium, std::nullopt}};
  for (const auto& [action, role, toolkit, name] : cases) {
    EXPECT_EQ(actionName(action, role, toolkit), name) << action;
  }
}

TEST(Roles, TitlesAreWhatAUserReads) {
  EXPECT_EQ(title("Save \n", pushButton, Toolkit::gtk3), "Save");
  EXPECT_EQ(title("GtkEntry", pushButton, Toolkit::gtk4), "");
  EXPECT_EQ(title("GtkEntry", pushButton, Toolkit::gtk3), "GtkEntry");
  EXPECT_EQ(title("EditorPage", panel, Toolkit::gtk4), "");
  EXPECT_EQ(title("EditorPage", label, Toolkit::gtk4), "EditorPage");
  EXPECT_EQ(title("Gtk Demo", pushButton, Toolkit::gtk4), "Gtk Demo");
}

}  // namespace
}  // namespace tervain::Linux::Roles
