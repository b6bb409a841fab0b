#include "Platform/Linux/Accessibility/Snapshot.h"

#include <algorithm>
#include <utility>

namespace tervain::Linux {

using Atspi::Interface;
using Atspi::Role;
using Atspi::State;
using Platform::AXNumber;
using Platform::AXValue;

namespace {

constexpr std::string_view blanks = " \t\n\r\f\v";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
  return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

/// Takes out every occurrence of a part of which `isWanted` says so, given where it begins.
template <class Condition>
void eraseEach(std::string& text, std::string_view part, Condition isWanted) {
  std::string kept;
  std::size_t begin = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at)) {
    const std::size_t end = at + part.size();
    kept.append(text, begin, (isWanted(at) ? at : end) - begin);
    begin = at = end;
  }
  text = kept.append(text, begin);
}

}  // namespace

std::size_t countCharacters(std::string_view text) {
  // Of each, one byte begins with other bits than 10.
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
  }));
}

std::string readableText(std::string text, Toolkit toolkit) {
  constexpr std::string_view objectReplacement = "\uFFFC";
  constexpr std::string_view zeroWidthNoBreakSpace = "\uFEFF";
  eraseEach(text, objectReplacement, [](std::size_t /*at*/) { return true; });
  if (toolkit == Toolkit::gecko) {
    // What is beyond the BMP takes four bytes, of which the first has these bits.
    eraseEach(text, zeroWidthNoBreakSpace, [&text](std::size_t at) {
      return at >= 4 && (static_cast<unsigned char>(text[at - 4]) & 0xF8U) == 0xF0;
    });
  }
  return text;
}

bool Snapshot::shows() const {
  // A tab may be hidden while the page below it is not: editors do so with a single document.
  const bool isTab = kind.role == Role::pageTab && kind.parentRole == Role::pageTabList;
  if (kind.role == Role::application || isTab) {
    return true;
  }
  // Gecko says so of menus that are about to open as well, and its open lists are in a box that is
  // nowhere itself.
  if (toolkit == Toolkit::gecko && !has(State::visible)) {
    return false;
  }
  const bool holdsOpenList = toolkit == Toolkit::gecko && has(State::expanded);
  // Qt says of lists in closed boxes that they show, and gives them no size. GTK 4 says it of
  // windows alone.
  if (extents && extents->areNowhere() && !holdsOpenList) {
    return false;
  }
  return has(State::showing) || (toolkit == Toolkit::gtk4 && has(State::visible));
}

bool Snapshot::isEnabled() const {
  return has(State::sensitive) || has(State::enabled);
}

bool Snapshot::takesSteps() const {
  return number && Roles::isAdjustable(kind.role);
}

bool Snapshot::takesNumbers() const {
  return takesSteps() || (number && kind.role == Role::tableCell && has(State::editable));
}

bool Snapshot::takesText() const {
  return interfaces.has(Interface::editableText) && has(State::editable);
}

std::optional<AXValue> Snapshot::title() const {
  std::string title = Roles::title(name, kind.role, toolkit);
  const auto shown = isNamedAfterItsValue() ? value() : std::nullopt;
  const auto* shownText = shown ? std::get_if<std::string>(&*shown) : nullptr;
  if (shownText && trimmed(*shownText) == trimmed(title)) {
    return std::nullopt;
  }
  return title;
}

std::optional<AXValue> Snapshot::value() const {
  if (Roles::isMadeOfText(kind) && text &&
      !(has(State::editable) ? std::string_view(*text) : trimmed(*text)).empty()) {
    return *text;
  }
  // The number of a cell that has a text is 0 where the text is none.
  if (number && (Roles::showsANumber(kind) || (kind.role == Role::tableCell && !text))) {
    // Chromium has numbers of single precision, whose decimals would be many more in double.
    const auto single = static_cast<float>(*number);
    return toolkit == Toolkit::chromium && single == *number ? AXNumber(single) : AXNumber(*number);
  }
  if (saysMoreThanItsName()) {
    return *text;
  }
  if (Roles::isCheckable(kind)) {
    const State on = kind.role == Role::pageTab ? State::selected : State::checked;
    const std::int64_t unclear = has(State::indeterminate) ? 2 : 0;
    return AXNumber(has(on) ? 1 : unclear);
  }
  if (isNamedAfterItsValue()) {
    return Roles::title(name, kind.role, toolkit);
  }
  return std::nullopt;
}

bool Snapshot::isNamedAfterItsValue() const {
  if (kind.role == Role::tableCell) {
    return !text && Roles::namesOf(kind).role == "AXCell";  // as in Qt
  }
  return Roles::showsItsName(kind.role) && !(kind.role == Role::comboBox && isBrowser(toolkit));
}

bool Snapshot::saysMoreThanItsName() const {
  // Gecko does not show the texts in an element as elements of their own.
  const bool isInItsChildren = kind.hasChildren && toolkit != Toolkit::gecko;
  return text && !isInItsChildren && !trimmed(*text).empty() && trimmed(*text) != trimmed(name);
}

std::optional<std::string> Snapshot::nameOf(const Atspi::Action& offered) const {
  // Every label of GTK 4 offers a menu, and does nothing unless its text can be selected.
  const bool isPlainLabel = toolkit == Toolkit::gtk4 && kind.role == Role::label;
  if (isPlainLabel && !has(State::focusable) && offered.name == "menu.popup") {
    return std::nullopt;
  }
  return Roles::actionName(offered.name, kind.role, toolkit);
}

std::vector<std::string> Snapshot::actionNames() const {
  std::vector<std::string> names;
  const auto add = [&names](std::string macName) {
    if (std::find(names.begin(), names.end(), macName) == names.end()) {
      names.push_back(std::move(macName));
    }
  };
  for (const Atspi::Action& offered : actions) {
    if (auto macName = nameOf(offered)) {
      add(std::move(*macName));
    }
  }
  if (kind.role == Role::pageTab) {
    add("AXPress");  // by selecting it
  }
  if (takesSteps()) {
    add("AXIncrement");
    add("AXDecrement");
  }
  if (Roles::namesOf(kind).role == "AXWindow") {
    add("AXRaise");
  }
  return names;
}

const Atspi::Action* Snapshot::actionNamed(std::string_view macName) const {
  const auto found =
      std::find_if(actions.begin(), actions.end(),
                   [&](const Atspi::Action& offered) { return nameOf(offered) == macName; });
  return found == actions.end() ? nullptr : &*found;
}

}  // namespace tervain::Linux
