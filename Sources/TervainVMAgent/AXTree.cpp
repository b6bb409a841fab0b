// Elements as the nodes of a reply: what their attributes become on the wire.

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/Rounding.h"

namespace tervain {

using Platform::AXAttribute;
using Platform::AXElement;
using Platform::AXElements;
using Platform::AXReader;
using Platform::AXValue;

namespace {

/// How many characters of a value are shown; a character is what a reader takes for one.
constexpr std::size_t maxValueCharacters = 250;
constexpr std::string_view ellipsis = "…";

std::string decimalText(std::int64_t number) {
  return std::to_string(number);
}

/// As many digits as macOS gives a number of that precision, with an exponent where there would be
/// too many zeros.
template <class Real>
std::string decimalText(Real number) {
  constexpr int digits = sizeof(Real) == sizeof(float) ? 7 : 16;
  std::array<char, 32> text;  // NOLINT(*-member-init): written before it is read
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number,
                                 std::chars_format::general, digits)
                       .ptr;
  return {text.data(), end};
}

/// Where the first `limit` grapheme clusters of a UTF-8 text end.
std::size_t endOfCharacters(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) {
    return text.size();
  }
  utf8proc_int32_t state = 0;
  utf8proc_int32_t previous = -1;
  std::size_t characters = 0;
  for (std::size_t at = 0; at < text.size();) {
    utf8proc_int32_t current = -1;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
    const auto left = static_cast<utf8proc_ssize_t>(text.size() - at);
    const utf8proc_ssize_t length = utf8proc_iterate(bytes, left, &current);
    const bool valid = length > 0;  // a byte that is not UTF-8 is a character of its own
    if (!valid || previous < 0 || utf8proc_grapheme_break_stateful(previous, current, &state)) {
      if (characters == limit) {
        return at;
      }
      ++characters;
    }
    previous = valid ? current : -1;
    at += valid ? static_cast<std::size_t>(length) : 1;
  }
  return text.size();
}

std::optional<std::string> textOf(const AXValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) {
    return *text;
  }
  if (const auto* number = std::get_if<Platform::AXNumber>(&value)) {
    return std::visit([](auto n) { return decimalText(n); }, *number);
  }
  if (const auto* url = std::get_if<Platform::AXURL>(&value)) {
    return url->text;
  }
  return std::nullopt;
}

template <class T>
std::optional<T> read(AXReader& reader, const AXElement& element, AXAttribute attribute) {
  auto value = reader.attribute(element, attribute);
  auto* wanted = value ? std::get_if<T>(&*value) : nullptr;
  return wanted ? std::optional<T>(std::move(*wanted)) : std::nullopt;
}

template <class T>
void put(Json& node, const char* key, std::optional<T> value) {
  if (value) {
    node[key] = std::move(*value);
  }
}

}  // namespace

std::optional<std::string> ConnectionHandler::copyString(AXReader& reader, const AXElement& element,
                                                         AXAttribute attribute) {
  return read<std::string>(reader, element, attribute);
}

std::optional<bool> ConnectionHandler::copyBool(AXReader& reader, const AXElement& element,
                                                AXAttribute attribute) {
  const auto number = read<Platform::AXNumber>(reader, element, attribute);
  if (!number) {
    return std::nullopt;
  }
  return std::visit([](auto n) { return n != 0; }, *number);
}

std::optional<Json> ConnectionHandler::copyFrame(AXReader& reader, const AXElement& element) {
  const auto position = read<Platform::Point>(reader, element, AXAttribute::position);
  if (!position) {
    return std::nullopt;
  }
  const auto size = read<Platform::Size>(reader, element, AXAttribute::size);
  if (!size) {
    return std::nullopt;
  }
  return Json{{"x", roundedToInteger(position->x)},
              {"y", roundedToInteger(position->y)},
              {"w", roundedToInteger(size->width)},
              {"h", roundedToInteger(size->height)}};
}

std::optional<std::string> ConnectionHandler::copyValueDescription(AXReader& reader,
                                                                   const AXElement& element) {
  const auto value = reader.attribute(element, AXAttribute::value);
  auto text = value ? textOf(*value) : std::nullopt;
  if (!text || text->empty()) {
    return std::nullopt;
  }
  const std::size_t end = endOfCharacters(*text, maxValueCharacters);
  if (end < text->size()) {
    text->resize(end);
    text->append(ellipsis);
  }
  return text;
}

Json ConnectionHandler::buildNode(AXReader& reader, const AXElement& element, int depth,
                                  int maxDepth, int& budget) {
  const int left = --budget;
  Json node{{"ref", axRegistry_.registerElement(element)}};
  addAttributes(node, reader, element);
  if (depth < maxDepth && left >= 1) {
    addChildren(node, reader, element, depth, maxDepth, budget);
  }
  return node;
}

void ConnectionHandler::addAttributes(Json& node, AXReader& reader, const AXElement& element) {
  put(node, "role", copyString(reader, element, AXAttribute::role));
  put(node, "subrole", copyString(reader, element, AXAttribute::subrole));
  if (auto title = copyString(reader, element, AXAttribute::title); title && !title->empty()) {
    node["title"] = std::move(*title);
  }
  put(node, "value", copyValueDescription(reader, element));
  // Only what is out of the ordinary is said: most elements are enabled and without the focus.
  if (copyBool(reader, element, AXAttribute::enabled) == false) {
    node["enabled"] = false;
  }
  if (copyBool(reader, element, AXAttribute::focused) == true) {
    node["focused"] = true;
  }
  put(node, "frame", copyFrame(reader, element));
  if (auto actions = reader.actionNames(element); !actions.empty()) {
    node["actions"] = std::move(actions);
  }
}

void ConnectionHandler::addChildren(Json& node, AXReader& reader, const AXElement& element,
                                    int depth, int maxDepth, int& budget) {
  const auto children = read<AXElements>(reader, element, AXAttribute::children);
  if (!children || children->count == 0) {
    return;
  }
  Json built = Json::array();
  for (const AXElement& child : children->first) {
    if (built.size() == maxChildren || budget < 1) {
      break;
    }
    built.push_back(buildNode(reader, child, depth + 1, maxDepth, budget));
  }
  const std::size_t omitted = children->count - built.size();
  if (!built.empty()) {
    node["children"] = std::move(built);
  }
  if (omitted > 0) {
    node["childrenOmitted"] = omitted;
  }
}

}  // namespace tervain
