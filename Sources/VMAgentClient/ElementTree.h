#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VMAgentCore/Json.h"

namespace tervain {

/// A rectangle in screen coordinates, the space that clicks are in.
struct Frame {
  std::int64_t x = 0;
  std::int64_t y = 0;
  std::int64_t w = 0;
  std::int64_t h = 0;
  bool operator==(const Frame&) const = default;
};

struct ScreenPoint {
  std::int64_t x = 0;
  std::int64_t y = 0;
  bool operator==(const ScreenPoint&) const = default;
};

/// An element of an application as the agent described it. What the application does not tell, or
/// the agent tells in another form than the protocol's, is left out.
struct Element {
  std::string ref;
  std::optional<std::string> role;
  std::optional<std::string> subrole;
  std::optional<std::string> title;
  std::optional<std::string> value;  // its first 250 characters
  bool enabled = true;
  bool focused = false;
  std::optional<Frame> frame;
  std::vector<std::string> actions;
  std::vector<Element> children;
  std::int64_t childrenOmitted = 0;
};

/// What a dump shows of an application.
struct ElementTree {
  Element root;
  std::string app;
  bool truncated = false;  // the agent shows no more elements at once
  int depth = 0;           // how many levels below the root were asked for
};

/// The element that a node of the protocol describes, with all below it. Throws ProtocolError for
/// what is no node.
Element elementOf(const Json& node);

/// The tree of a successful reply to "ax_dump" that asked for so many levels. Throws ProtocolError.
ElementTree treeOf(const Json& reply, int depth);

/// Visits an element and all below it, each before its children, with the elements above it, the
/// outermost first.
using ElementPath = std::vector<const Element*>;
using ElementVisitor = std::function<void(const Element& element, const ElementPath& above)>;
void visit(const Element& root, const ElementVisitor& visitor);

/// How many elements there are, the root included.
std::size_t countElements(const Element& root);

/// What keeps elements of the application out of the tree, in words that follow "the agent shows";
/// empty when nothing does.
std::string limitsOf(const ElementTree& tree);

/// The part of an element's frame that can be seen, as far as those above it tell: what lies within
/// the scrolled areas and the window, menu or sheet that it is in. Nothing when there is none.
std::optional<Frame> visibleFrame(const Element& element, const ElementPath& above);

/// What two frames have in common; nothing when that is nothing.
std::optional<Frame> intersection(const Frame& one, const Frame& other);

ScreenPoint middleOf(const Frame& frame);

}  // namespace tervain
