#include "VMAgentClient/ElementTree.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "VMAgentClient/ProtocolError.h"

namespace tervain {
namespace {

std::optional<std::string> text(const Json& node, std::string_view key) {
  const std::string* member = stringMember(node, key);
  return member ? std::optional(*member) : std::nullopt;
}

std::optional<Frame> frameOf(const Json& node) {
  const auto frame = node.find("frame");
  if (frame == node.end() || !frame->is_object()) {
    return std::nullopt;
  }
  const auto x = integerMember(*frame, "x");
  const auto y = integerMember(*frame, "y");
  const auto w = integerMember(*frame, "w");
  const auto h = integerMember(*frame, "h");
  return x && y && w && h ? std::optional(Frame{*x, *y, *w, *h}) : std::nullopt;
}

/// The items of a member that is an array.
const Json& list(const Json& node, const char* key) {
  static const Json none = Json::array();
  const auto member = node.find(key);
  return member != node.end() && member->is_array() ? *member : none;
}

/// Coordinates come from applications, which may have any: sums of these stay far from the limits.
std::int64_t bounded(std::int64_t number) {
  constexpr std::int64_t farthest = std::int64_t{1} << 40;
  return std::clamp(number, -farthest, farthest);
}

template <class Roles>
bool hasRole(const Element& element, const Roles& roles) {
  return element.role && std::find(roles.begin(), roles.end(), *element.role) != roles.end();
}

void visit(const Element& element, ElementPath& above, const ElementVisitor& visitor) {
  visitor(element, above);
  above.push_back(&element);
  for (const Element& child : element.children) {
    visit(child, above, visitor);
  }
  above.pop_back();
}

}  // namespace

Element elementOf(const Json& node) {
  if (!node.is_object() || !stringMember(node, "ref")) {
    throw ProtocolError("the agent's reply holds no elements");
  }
  Element element{.ref = *stringMember(node, "ref"),
                  .role = text(node, "role"),
                  .subrole = text(node, "subrole"),
                  .title = text(node, "title"),
                  .value = text(node, "value"),
                  .enabled = !node.contains("enabled") || truthy(node, "enabled"),
                  .focused = truthy(node, "focused"),
                  .frame = frameOf(node),
                  .actions = {},
                  .children = {},
                  .childrenOmitted = integerMember(node, "childrenOmitted").value_or(0)};
  for (const Json& action : list(node, "actions")) {
    if (action.is_string()) {
      element.actions.push_back(action.get<std::string>());
    }
  }
  for (const Json& child : list(node, "children")) {
    element.children.push_back(elementOf(child));
  }
  return element;
}

ElementTree treeOf(const Json& reply, int depth) {
  const auto root = reply.find("tree");
  return {elementOf(root == reply.end() ? Json() : *root), text(reply, "app").value_or(""),
          truthy(reply, "truncated"), depth};
}

void visit(const Element& root, const ElementVisitor& visitor) {
  ElementPath above;
  visit(root, above, visitor);
}

std::size_t countElements(const Element& root) {
  std::size_t count = 0;
  visit(root, [&count](const Element&, const ElementPath&) { ++count; });
  return count;
}

std::string limitsOf(const ElementTree& tree) {
  std::int64_t omitted = 0;
  bool deep = false;
  visit(tree.root, [&](const Element& element, const ElementPath& above) {
    omitted += element.childrenOmitted > 0 ? 1 : 0;
    deep = deep || above.size() >= static_cast<std::size_t>(tree.depth);
  });
  std::string words;
  const auto add = [&words](const std::string& limit) {
    words.append(words.empty() ? "" : ", ").append(limit);
  };
  if (tree.truncated) {
    add("no more than " + std::to_string(countElements(tree.root)) + " elements at once");
  } else if (omitted > 0) {
    add("only the first children of " + std::to_string(omitted) +
        (omitted == 1 ? " element" : " elements"));
  }
  if (deep) {
    add("nothing below level " + std::to_string(tree.depth));
  }
  return words;
}

std::optional<Frame> visibleFrame(const Element& element, const ElementPath& above) {
  // What has a surface of its own is not clipped by what it belongs to: a menu hangs out of its
  // bar.
  constexpr std::array<std::string_view, 6> surfaces{"AXWindow",  "AXSheet", "AXDrawer",
                                                     "AXPopover", "AXMenu",  "AXMenuBar"};
  constexpr std::array<std::string_view, 1> clipping{"AXScrollArea"};
  auto seen = element.frame ? intersection(*element.frame, *element.frame) : std::nullopt;
  const Element* inner = &element;
  for (auto outer = above.rbegin(); outer != above.rend() && !hasRole(*inner, surfaces); ++outer) {
    inner = *outer;
    if (seen && inner->frame && (hasRole(*inner, surfaces) || hasRole(*inner, clipping))) {
      seen = intersection(*seen, *inner->frame);
    }
  }
  return seen;
}

std::optional<Frame> intersection(const Frame& one, const Frame& other) {
  const auto right = [](const Frame& frame) { return bounded(frame.x) + bounded(frame.w); };
  const auto bottom = [](const Frame& frame) { return bounded(frame.y) + bounded(frame.h); };
  const std::int64_t x = std::max(bounded(one.x), bounded(other.x));
  const std::int64_t y = std::max(bounded(one.y), bounded(other.y));
  const Frame common{x, y, std::min(right(one), right(other)) - x,
                     std::min(bottom(one), bottom(other)) - y};
  return common.w > 0 && common.h > 0 ? std::optional(common) : std::nullopt;
}

ScreenPoint middleOf(const Frame& frame) {
  return {frame.x + frame.w / 2, frame.y + frame.h / 2};
}

}  // namespace tervain
