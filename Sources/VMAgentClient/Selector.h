#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "VMAgentClient/ElementTree.h"

namespace tervain {

/// Which elements are meant: those that have all of these. Each is a part of the element's own
/// text, whatever its case, or, when `exact`, the whole of it; see TextPattern. An element without
/// a text has an empty one. A role is looked for in the role, in the subrole, and in the two as
/// outlines have them, "AXWindow/AXDialog".
struct Selector {
  std::optional<std::string> role{};
  std::optional<std::string> title{};
  std::optional<std::string> value{};
  bool exact = false;
};

/// The words for a selector: role "button", title "Save".
std::string toString(const Selector& selector);

/// An element that fits, without what lies below it.
struct Match {
  Element element;
  std::optional<Frame> visible;  // the part of its frame that can be seen
};

/// The elements of a tree that fit, in its order. Throws std::invalid_argument when a text of the
/// selector is not UTF-8.
std::vector<Match> matchesIn(const ElementTree& tree, const Selector& selector);

/// Not just one element fits, so none was chosen. The text says which there are, or what kept them
/// from being seen.
class NotChosen : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The one element that fits. Throws NotChosen when there is none, or more than one, and
/// std::invalid_argument.
Match choose(const ElementTree& tree, const Selector& selector);

/// Says that nothing in a tree fits, and what the agent may have left out of it.
std::string noneFits(const ElementTree& tree, const Selector& selector);

}  // namespace tervain
