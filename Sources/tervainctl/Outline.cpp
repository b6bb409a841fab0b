#include "tervainctl/Outline.h"

#include <string_view>

#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

/// What an application calls things must not break the lines, nor reach the terminal's controls.
std::string quote(const std::string& text) {
  return Json(text).dump();
}

std::string escape(const std::string& text) {
  const std::string quoted = quote(text);
  return quoted.substr(1, quoted.size() - 2);
}

std::string frameText(const Json& frame) {
  return " " + numberText(frame, "x") + "," + numberText(frame, "y") + " " +
         numberText(frame, "w") + "x" + numberText(frame, "h");
}

std::string actionsText(const Json& actions) {
  std::string text;
  for (const Json& action : actions) {
    if (action.is_string()) {
      text.append(text.empty() ? " [" : ", ").append(escape(action.get<std::string>()));
    }
  }
  return text.empty() ? "" : text + "]";
}

std::string nodeText(const Json& node) {
  std::string text;
  const auto addString = [&](std::string_view key, auto format) {
    if (const std::string* value = stringMember(node, key)) {
      text += format(*value);
    }
  };
  addString("ref", escape);
  addString("role", [](const std::string& role) { return " " + escape(role); });
  addString("subrole", [](const std::string& subrole) { return "/" + escape(subrole); });
  addString("title", [](const std::string& title) { return " " + quote(title); });
  addString("value", [](const std::string& value) { return " =" + quote(value); });
  if (const auto frame = node.find("frame"); frame != node.end() && frame->is_object()) {
    text += frameText(*frame);
  }
  if (node.contains("enabled") && !truthy(node, "enabled")) {
    text += " disabled";
  }
  text += truthy(node, "focused") ? " focused" : "";
  if (const auto actions = node.find("actions"); actions != node.end() && actions->is_array()) {
    text += actionsText(*actions);
  }
  return text + "\n";
}

void append(std::string& text, const Json& node, std::size_t level) {
  text.append(2 * level, ' ').append(nodeText(node));
  if (const auto children = node.find("children"); children != node.end() && children->is_array()) {
    for (const Json& child : *children) {
      if (child.is_object()) {
        append(text, child, level + 1);
      }
    }
  }
  if (node.contains("childrenOmitted")) {
    text.append(2 * (level + 1), ' ').append(numberText(node, "childrenOmitted") + " not shown\n");
  }
}

}  // namespace

std::string outline(const Json& node) {
  std::string text;
  append(text, node, 0);
  return text;
}

}  // namespace tervain::ctl
