#include "VMAgentClient/Selector.h"

#include <algorithm>

#include "VMAgentClient/Outline.h"
#include "VMAgentClient/TextPattern.h"

namespace tervain {
namespace {

/// How many of the elements that fit are listed.
constexpr std::size_t mostListed = 20;

/// A selector ready to be compared.
class Filter {
 public:
  explicit Filter(const Selector& selector)
      : role_(pattern(selector.role, selector.exact)),
        title_(pattern(selector.title, selector.exact)),
        value_(pattern(selector.value, selector.exact)) {}

  [[nodiscard]] bool fits(const Element& element) const {
    return fitsRole(element) && (!title_ || title_->fits(element.title.value_or(""))) &&
           (!value_ || value_->fits(element.value.value_or("")));
  }

 private:
  using Pattern = std::optional<TextPattern>;

  static Pattern pattern(const std::optional<std::string>& text, bool exact) {
    return text ? Pattern(std::in_place, *text, exact) : std::nullopt;
  }

  [[nodiscard]] bool fitsRole(const Element& element) const {
    const std::string role = element.role.value_or("");
    return !role_ || role_->fits(role) ||
           (element.subrole &&
            (role_->fits(*element.subrole) || role_->fits(role + "/" + *element.subrole)));
  }

  Pattern role_;
  Pattern title_;
  Pattern value_;
};

/// Whether the agent shows only the beginning of a value.
bool isCut(const Element& element) {
  constexpr std::size_t mostCharacters = 250;
  return element.value && element.value->size() > mostCharacters && element.value->ends_with("…");
}

std::string listed(const std::vector<Match>& matches) {
  std::string text;
  for (std::size_t i = 0; i < std::min(matches.size(), mostListed); ++i) {
    text.append("\n  ").append(outlineOf(matches[i].element));
  }
  if (matches.size() > mostListed) {
    text.append("\n  and ").append(std::to_string(matches.size() - mostListed)).append(" more");
  }
  return text;
}

}  // namespace

std::string toString(const Selector& selector) {
  std::string text;
  const auto add = [&](const char* name, const std::optional<std::string>& part) {
    if (part) {
      text.append(text.empty() ? "" : ", ")
          .append(name)
          .append(" ")
          .append(serializeLossily(*part));
    }
  };
  add("role", selector.role);
  add("title", selector.title);
  add("value", selector.value);
  return (selector.exact ? "exactly " : "") + text;
}

std::vector<Match> matchesIn(const ElementTree& tree, const Selector& selector) {
  const Filter filter(selector);
  std::vector<Match> matches;
  visit(tree.root, [&](const Element& element, const ElementPath& above) {
    if (filter.fits(element)) {
      matches.push_back({element, visibleFrame(element, above)});
      matches.back().element.children.clear();
    }
  });
  return matches;
}

std::string noneFits(const ElementTree& tree, const Selector& selector) {
  std::string limits = limitsOf(tree);
  bool cut = false;
  visit(tree.root, [&cut](const Element& element, const ElementPath&) { cut |= isCut(element); });
  if (selector.value && cut) {
    limits.append(limits.empty() ? "" : ", ").append("only the first 250 characters of a value");
  }
  const std::string count = std::to_string(countElements(tree.root));
  if (limits.empty()) {
    return "no element fits " + toString(selector) + ", of " + count + " in " + tree.app;
  }
  return "none of the " + count + " elements shown of " + tree.app + " fits " + toString(selector) +
         ", but it may be one that is not shown: the agent shows " + limits;
}

Match choose(const ElementTree& tree, const Selector& selector) {
  auto matches = matchesIn(tree, selector);
  if (matches.empty()) {
    throw NotChosen(noneFits(tree, selector));
  }
  if (matches.size() > 1) {
    throw NotChosen(std::to_string(matches.size()) + " elements fit " + toString(selector) +
                    ", and nothing was done; say more of the one that is meant:" + listed(matches));
  }
  return std::move(matches.front());
}

}  // namespace tervain
