#include "VMAgentClient/Inspection.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "VMAgentClient/GuestShell.h"
#include "VMAgentClient/InspectionPage.h"
#include "VMAgentCore/Base64/Base64.h"

namespace tervain {
namespace {

/// Which texts name an element.
struct Words {
  bool title;
  bool value;
};
constexpr std::array<Words, 4> ways{{{true, false}, {false, true}, {true, true}, {false, false}}};

/// Finds out how each element of a tree can be named so that no other is meant.
class Names {
 public:
  explicit Names(const Element& root) {
    visit(root, [this](const Element& element, const ElementPath&) {
      for (const Words& words : ways) {
        ++counts_[keyOf(element, words)];
      }
    });
  }

  /// The options that name an element; empty when none do.
  [[nodiscard]] std::string optionsFor(const Element& element) const {
    for (const Words& words : ways) {
      const bool has = (!words.title || element.title) && (!words.value || canBeNamed(element));
      if (has && element.role && counts_.at(keyOf(element, words)) == 1) {
        return option("--role", *element.role) +
               (words.title ? option("--title", *element.title) : "") +
               (words.value ? option("--value", *element.value) : "") + " --exact";
      }
    }
    return "";
  }

 private:
  /// Which texts count, and these.
  using Key = std::tuple<bool, bool, std::string, std::string, std::string>;

  static Key keyOf(const Element& element, Words words) {
    return {words.title, words.value, element.role.value_or(""),
            words.title ? element.title.value_or("") : "",
            words.value ? element.value.value_or("") : ""};
  }

  /// Long values change, or are not all there, and are nothing to type.
  static bool canBeNamed(const Element& element) {
    constexpr std::size_t longest = 80;
    return element.value && element.value->size() <= longest &&
           element.value->find('\n') == std::string::npos;
  }

  static std::string option(const char* name, const std::string& value) {
    const bool dash = value.starts_with('-');
    return std::string(" ") + name + (dash ? "=" : " ") + shellWord(value);
  }

  std::map<Key, int> counts_;
};

/// The line for the shell that finds an element and presses it, or else clicks on it.
std::string commandFor(const Element& element, const ElementPath& above, const Names& names) {
  const std::string options = names.optionsFor(element);
  const auto& actions = element.actions;
  if (!options.empty() && !actions.empty()) {
    const bool press = std::find(actions.begin(), actions.end(), "AXPress") != actions.end();
    return " press" + options + (press ? "" : " " + shellWord(actions.front()));
  }
  const auto visible = visibleFrame(element, above);
  if (!visible) {
    return "";
  }
  const ScreenPoint middle = middleOf(*visible);
  return " click" + (options.empty()
                         ? " " + std::to_string(middle.x) + " " + std::to_string(middle.y)
                         : options);
}

Json describe(const Element& element, const ElementPath& above, const std::string& command) {
  Json node{{"ref", element.ref},         {"level", above.size() + 1},
            {"enabled", element.enabled}, {"focused", element.focused},
            {"actions", element.actions}, {"omitted", element.childrenOmitted},
            {"command", command}};
  const auto add = [&node](const char* key, const std::optional<std::string>& text) {
    if (text) {
      node[key] = *text;
    }
  };
  add("role", element.role);
  add("subrole", element.subrole);
  add("title", element.title);
  add("value", element.value);
  if (element.frame) {
    const Frame& frame = *element.frame;
    node["frame"] = {frame.x, frame.y, frame.w, frame.h};
  }
  return node;
}

/// JSON as a page may have it: nothing in it ends the element that it stands in.
std::string embedded(const Json& data) {
  std::string text;
  for (const char c : data.dump(-1, ' ', true)) {
    if (c == '<') {
      text += "\\u003c";
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace

std::string shellWord(std::string_view word) {
  constexpr std::string_view plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:@%+,";
  const bool isPlain = !word.empty() && word.find_first_not_of(plain) == std::string_view::npos;
  return isPlain ? std::string(word) : GuestShell::inQuotes(word);
}

std::string inspectionPage(const ElementTree& tree, const Screenshot& picture,
                           const std::string& tervainctl) {
  const Names names(tree.root);
  Json elements = Json::array();
  visit(tree.root, [&](const Element& element, const ElementPath& above) {
    const std::string command = commandFor(element, above, names);
    elements.push_back(describe(element, above, command.empty() ? "" : tervainctl + command));
  });
  const Json data{{"app", tree.app},
                  {"limits", limitsOf(tree)},
                  {"width", picture.width / picture.pixelsPerPoint},
                  {"height", picture.height / picture.pixelsPerPoint},
                  {"elements", std::move(elements)}};
  std::string image;
  appendBase64(image, picture.jpeg);
  std::erase(image, '\\');  // which is how JSON has slashes here
  constexpr std::string_view imageMark = "@PICTURE@";
  constexpr std::string_view dataMark = "@DATA@";
  std::string page(inspectionPageTemplate);
  page.replace(page.find(imageMark), imageMark.size(), image);
  return page.replace(page.find(dataMark), dataMark.size(), embedded(data));
}

}  // namespace tervain
