#include "VMAgentClient/Outline.h"

namespace tervain {
namespace {

/// What an application calls things must not break the lines, nor reach the terminal's controls.
std::string quote(const std::string& text) {
  return Json(text).dump();
}

std::string escape(const std::string& text) {
  const std::string quoted = quote(text);
  return quoted.substr(1, quoted.size() - 2);
}

std::string frameText(const Frame& frame) {
  return " " + std::to_string(frame.x) + "," + std::to_string(frame.y) + " " +
         std::to_string(frame.w) + "x" + std::to_string(frame.h);
}

std::string actionsText(const Element& element) {
  std::string text;
  for (const std::string& action : element.actions) {
    text.append(text.empty() ? " [" : ", ").append(escape(action));
  }
  return text.empty() ? "" : text + "]";
}

void append(std::string& text, const Element& element, std::size_t level) {
  text.append(2 * level, ' ').append(outlineOf(element)).append("\n");
  for (const Element& child : element.children) {
    append(text, child, level + 1);
  }
  if (element.childrenOmitted > 0) {
    text.append(2 * (level + 1), ' ')
        .append(std::to_string(element.childrenOmitted) + " not shown\n");
  }
}

}  // namespace

std::string outlineOf(const Element& element) {
  std::string text = escape(element.ref);
  const auto add = [&text](const char* before, const std::optional<std::string>& member,
                           auto format) {
    if (member) {
      text.append(before).append(format(*member));
    }
  };
  add(" ", element.role, escape);
  add("/", element.subrole, escape);
  add(" ", element.title, quote);
  add(" =", element.value, quote);
  text += element.frame ? frameText(*element.frame) : "";
  text += element.enabled ? "" : " disabled";
  text += element.focused ? " focused" : "";
  return text + actionsText(element);
}

std::string outline(const Element& root) {
  std::string text;
  append(text, root, 0);
  return text;
}

}  // namespace tervain
