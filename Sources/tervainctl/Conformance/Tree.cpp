#include "tervainctl/Conformance/Tree.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

constexpr int mostNodes = 800;
constexpr std::size_t mostChildren = 48;
/// 250 characters and an ellipsis. No character, not even a long sequence of emoji, has more bytes.
constexpr std::size_t mostValueBytes = 251 * 64;

bool isText(const Json& value) {
  return value.is_string();
}

bool isSomeText(const Json& value) {
  return value.is_string() && value != "";
}

bool isFrame(const Json& value) {
  return hasMembers(value, {"x", "y", "w", "h"}) &&
         std::all_of(value.begin(), value.end(),
                     [](const Json& number) { return number.is_number_integer(); });
}

bool isListOf(const Json& value, bool (*isItem)(const Json&)) {
  return value.is_array() && !value.empty() && std::all_of(value.begin(), value.end(), isItem);
}

/// Whether a node may have this member with this value. What goes without saying is left out of a
/// node: that it is enabled, that it is not focused, a title, value or list that is empty. So
/// "enabled" is there as false only, "focused" as true only, and these others are never empty.
bool isMember(const std::string& key, const Json& value) {
  static const std::map<std::string, std::function<bool(const Json&)>> members{
      {"ref", isText},
      {"role", isText},
      {"subrole", isText},
      {"title", isSomeText},
      {"value",
       [](const Json& v) {
         return isSomeText(v) && v.get_ref<const std::string&>().size() <= mostValueBytes;
       }},
      {"enabled", [](const Json& v) { return v == false; }},
      {"focused", [](const Json& v) { return v == true; }},
      {"frame", isFrame},
      {"actions", [](const Json& v) { return isListOf(v, isText); }},
      {"children",
       [](const Json& v) {
         return v.size() <= mostChildren &&
                isListOf(v, [](const Json& c) { return c.is_object(); });
       }},
      {"childrenOmitted", [](const Json& v) { return v.is_number_unsigned() && v > 0; }},
  };
  const auto found = members.find(key);
  return found != members.end() && found->second(value);
}

/// A walk through a tree in the order in which its refs count on: a node, then its children.
struct Walk {
  std::int64_t nextRef;
  int maxDepth;
  int nodes = 0;

  std::string faultOf(const Json& node, int depth) {
    std::string fault = nodeFault(node);
    if (fault.empty() && refNumber(node) != nextRef) {
      fault = "a ref other than e" + std::to_string(nextRef) + ": " + node["ref"].dump();
    }
    if (fault.empty() && depth > maxDepth) {
      fault = node["ref"].dump() + " lies deeper than asked for";
    }
    ++nextRef;
    ++nodes;
    const auto children = node.find("children");
    if (fault.empty() && children != node.end()) {
      for (const Json& child : *children) {
        fault = faultOf(child, depth + 1);
        if (!fault.empty()) {
          break;
        }
      }
    }
    return fault;
  }
};

}  // namespace

std::int64_t refNumber(const Json& node) {
  const std::string* ref = stringMember(node, "ref");
  std::int64_t number = 0;
  if (!ref || !ref->starts_with("e")) {
    return 0;
  }
  std::from_chars(ref->data() + 1, ref->data() + ref->size(), number);
  return *ref == "e" + std::to_string(number) ? number : 0;
}

std::string nodeFault(const Json& node) {
  if (refNumber(node) <= 0) {
    return "a node without a ref";
  }
  for (const auto& [key, value] : node.items()) {
    if (!isMember(key, value)) {
      return "\"" + key + "\" of " + node["ref"].get<std::string>() + " is " +
             value.dump().substr(0, 100);
    }
  }
  return "";
}

std::string dumpFault(const Json& reply, std::int64_t firstRef, int maxDepth) {
  const bool truncated = reply.contains("truncated");
  const std::string* app = stringMember(reply, "app");
  if (!truthy(reply, "ok") || !app || app->empty() || !reply.contains("tree") ||
      reply.size() != (truncated ? 4U : 3U) || (truncated && reply["truncated"] != true)) {
    return "not the documented members: " + reply.dump().substr(0, 300);
  }
  if (!reply["tree"].is_object()) {
    return "the tree is no node";
  }
  Walk walk{firstRef, maxDepth};
  std::string fault = walk.faultOf(reply["tree"], 0);
  if (fault.empty() && (walk.nodes > mostNodes || (walk.nodes == mostNodes) != truncated)) {
    fault = std::to_string(walk.nodes) + " nodes" + (truncated ? ", said to be cut off" : "");
  }
  return fault;
}

std::int64_t countNodes(const Json& tree) {
  std::int64_t count = 1;
  for (const Json& child : tree.value("children", Json::array())) {
    count += countNodes(child);
  }
  return count;
}

Json findNode(const Json& tree, const std::function<bool(const Json& node)>& wanted) {
  if (!tree.is_object()) {
    return {};
  }
  if (wanted(tree)) {
    return tree;
  }
  for (const Json& child : tree.value("children", Json::array())) {
    if (Json found = findNode(child, wanted); found.is_object()) {
      return found;
    }
  }
  return {};
}

bool isReason(std::string_view text) {
  constexpr std::array<std::string_view, 8> reasons{
      "success",
      "kAXErrorInvalidUIElement — stale element",
      "kAXErrorCannotComplete — the app did not respond in time",
      "attribute unsupported",
      "action unsupported",
      "the app does not implement this AX request",
      "kAXErrorAPIDisabled — accessibility is disabled for this app",
      "no value"};
  return text.starts_with("AXError -") ||
         std::find(reasons.begin(), reasons.end(), text) != reasons.end();
}

}  // namespace tervain::ctl::conform
