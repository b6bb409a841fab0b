#pragma once

#include <climits>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/AXNames.h"
#include "Platform/Linux/Elements.h"

namespace tervain {

/// A rectangle as a toolkit reports it, in its own units.
struct Extents {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  /// Whether this is what toolkits say of something that is not on the screen.
  [[nodiscard]] bool areNowhere() const { return width <= 0 || height <= 0 || x == INT_MIN; }

  /// Whether the two have a pixel in common.
  [[nodiscard]] bool meets(const Extents& other) const {
    return x < other.x + other.width && other.x < x + width && y < other.y + other.height &&
           other.y < y + height;
  }
};

struct ToolkitAction {
  int index;
  std::string name;  ///< as the toolkit calls it
};

/// All that an element has to say about itself.
struct Facts {
  AXNames::Kind kind;
  std::string name;
  std::optional<Extents> extents;
  std::optional<std::string> text;
  std::optional<double> number;
  bool hasEditableText = false;
  std::vector<ToolkitAction> actions;
  std::vector<AccessibilityBus::Object> children;  ///< the first of them
  std::size_t childCount = 0;
  Toolkit toolkit = Toolkit::other;

  [[nodiscard]] bool has(AXNames::State state) const { return AXNames::has(kind.states, state); }

  /// Whether it is part of what a user sees.
  [[nodiscard]] bool shows() const;

  /// Whether it reacts to its user.
  [[nodiscard]] bool isEnabled() const;
};

/// The actions of an element by their macOS names, those included that AT-SPI has other requests
/// for.
std::vector<std::string> actionNamesOf(const Facts& facts);

/// How much of an element is asked for.
struct FactsWanted {
  std::size_t maxChildren = 0;  ///< how many children at the least, if there are so many
  /// The role of the parent where the caller knows it; otherwise it is asked where it matters.
  std::optional<std::uint32_t> parentRole;
  /// Whether to ask for more at a time than may be needed: sooner done, for one element.
  bool atOnce = true;
  /// Whether the states, the extents, the role and the number of children will do.
  bool placeOnly = false;
};

/// What became of the reading, and the facts if it is `answered`.
using FactsHandler = std::function<void(AccessibilityBus::Outcome outcome, Facts facts)>;

/// Queues the questions about an element; `done` gets the answers as the connection runs. An
/// element that does not show is not asked for more than that takes.
void readFacts(AccessibilityBus::Connection& connection, const Platform::AXElement::Handle& element,
               const FactsWanted& wanted, FactsHandler done);

/// The facts about one element at once.
struct FactsNow {
  AccessibilityBus::Outcome outcome = AccessibilityBus::Outcome::noBus;
  Facts facts;
};
FactsNow readFactsNow(
    AccessibilityBus::Connection& connection, const Platform::AXElement::Handle& element,
    const FactsWanted& wanted = {},
    AccessibilityBus::Clock::time_point deadline = AccessibilityBus::Clock::time_point::max());

}  // namespace tervain
