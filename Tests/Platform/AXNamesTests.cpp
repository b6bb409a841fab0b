// What AT-SPI's roles and actions are called.

#include <gtest/gtest.h>

#include "Platform/Linux/AXNames.h"

namespace tervain::AXNames {
namespace {

std::string namesFor(const Kind& kind) {
  const Names names = namesOf(kind);
  return std::string(names.role) + "/" + std::string(names.subrole);
}

TEST(AXNames, EveryRoleHasAName) {
  constexpr std::uint32_t lastRole = 130;
  for (std::uint32_t role = 0; role <= lastRole; ++role) {
    EXPECT_EQ(namesFor({.role = role}).substr(0, 2), "AX") << role;
  }
  EXPECT_EQ(namesFor({.role = 40}), "AXTextField/AXSecureTextField");
  EXPECT_EQ(namesFor({.role = 129}), "AXMenuButton/");
}

TEST(AXNames, WhatTheNumberLeavesOpenIsToldByTheRest) {
  const std::uint64_t multiLine = std::uint64_t{1} << 17U;
  const std::pair<Kind, const char*> cases[] = {
      {{.role = 1000, .hasChildren = true}, "AXGroup/"},
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
      {{.role = comboBox}, "AXPopUpButton/"},
      {{.role = comboBox, .hasEntry = true}, "AXComboBox/"}};
  for (const auto& [kind, names] : cases) {
    EXPECT_EQ(namesFor(kind), names) << kind.role << " " << kind.roleName;
  }
}

TEST(AXNames, ActionsAreWhatAUserCanDo) {
  const std::tuple<const char*, std::uint32_t, std::optional<std::string>> cases[] = {
      {"Click", pushButton, "AXPress"},
      {"Activate", menuItem, "AXPress"},
      {"Activate", entry, "AXConfirm"},
      {"menu.popup", label, "AXShowMenu"},
      {"Increase", slider, "AXIncrement"},
      {"Expand or contract", tableCell, "Expand or contract"},
      {"clipboard.copy", label, std::nullopt},
      {"", pushButton, std::nullopt}};
  for (const auto& [action, role, name] : cases) {
    EXPECT_EQ(actionName(action, role), name) << action;
  }
}

TEST(AXNames, TitlesAreWhatAUserReads) {
  EXPECT_EQ(title("Save \n", Toolkit::gtk3), "Save");
  EXPECT_EQ(title("GtkEntry", Toolkit::gtk4), "");
  EXPECT_EQ(title("GtkEntry", Toolkit::gtk3), "GtkEntry");
  EXPECT_EQ(title("Gtk Demo", Toolkit::gtk4), "Gtk Demo");
  EXPECT_EQ(title("Gtk", Toolkit::gtk4), "Gtk");
}

}  // namespace
}  // namespace tervain::AXNames
