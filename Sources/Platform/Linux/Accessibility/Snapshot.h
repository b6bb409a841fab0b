#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Accessibility.h"
#include "Platform/Linux/Accessibility/Applications.h"
#include "Platform/Linux/Accessibility/Atspi.h"
#include "Platform/Linux/Accessibility/Roles.h"

namespace tervain::Linux {

/// An element that another one holds.
struct Child {
  AccessibilityBus::Object object;
  std::optional<TableRow> row{};  ///< which of the rows of the table that the object is
};

/// What an element said about itself at one time, as AT-SPI has it, and what that is to somebody
/// who reads it as macOS shows it. Nothing here asks the application.
struct Snapshot {
  Toolkit toolkit = Toolkit::other;
  Roles::Kind kind;
  Atspi::Interfaces interfaces;
  std::string name;
  std::optional<Atspi::Extents> extents;
  /// As its user reads it: see `readableText`. Ends in "…" if there is more of it.
  std::optional<std::string> text;
  std::optional<double> number;
  std::vector<Atspi::Action> actions;
  std::vector<Child> children;  ///< the first of them, or those that show
  std::size_t childCount = 0;   ///< how many there are in all

  [[nodiscard]] bool has(Atspi::State state) const { return kind.states.has(state); }

  /// Whether it is part of what a user sees.
  [[nodiscard]] bool shows() const;

  /// Whether it reacts to its user.
  [[nodiscard]] bool isEnabled() const;

  /// Whether its number can be moved in steps.
  [[nodiscard]] bool takesSteps() const;

  /// Whether a number can be written, `number` being what it is now.
  [[nodiscard]] bool takesNumbers() const;

  /// Whether a text can be written.
  [[nodiscard]] bool takesText() const;

  // The macOS attributes of the same names. Nothing where it has none.
  [[nodiscard]] std::optional<Platform::AXValue> title() const;
  [[nodiscard]] std::optional<Platform::AXValue> value() const;

  /// The macOS names of what it can do, each once. That includes actions for which AT-SPI has other
  /// calls.
  [[nodiscard]] std::vector<std::string> actionNames() const;

  /// The first action of the element's own that has this macOS name. Null if none has.
  [[nodiscard]] const Atspi::Action* actionNamed(std::string_view macName) const;

 private:
  /// The macOS name of one of its actions. Nothing for one that is left out.
  [[nodiscard]] std::optional<std::string> nameOf(const Atspi::Action& offered) const;
  [[nodiscard]] bool isNamedAfterItsValue() const;
  [[nodiscard]] bool saysMoreThanItsName() const;
};

/// How many characters there are in a text, as Unicode counts them.
std::size_t countCharacters(std::string_view text);

/// A text without what toolkits put into it that its user does not see: the placeholders of the
/// elements in it, and what Gecko adds so that it counts like UTF-16.
std::string readableText(std::string text, Toolkit toolkit);

}  // namespace tervain::Linux
