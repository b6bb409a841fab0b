#include "tervainctl/Mcp/Texts.h"

#include <algorithm>

#include "VMAgentCore/Json.h"

namespace tervain::mcp {
namespace {

/// The longest title, role or action in an outline: as much as the agent gives of a value.
constexpr std::size_t longestWord = 250;
constexpr std::size_t mostActions = 20;

bool continues(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

void shorten(std::string& text) {
  if (text.size() <= longestWord) {
    return;
  }
  std::size_t end = longestWord;
  while (end > 0 && continues(text[end])) {
    --end;
  }
  text.erase(end);
  text += "…";
}

void shorten(std::optional<std::string>& text) {
  if (text) {
    shorten(*text);
  }
}

}  // namespace

std::string cutLines(std::string text, std::size_t most, const std::string& advice) {
  if (text.size() <= most) {
    return text;
  }
  const std::size_t total = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  const std::string reserve(advice.size() + 100, ' ');
  const std::size_t end = text.rfind('\n', most - std::min(most, reserve.size()));
  text.erase(end == text.npos ? 0 : end + 1);
  const auto shown = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  return text + "[cut here: " + std::to_string(total - shown) + " more lines; " + advice + "]\n";
}

Element shortened(Element element) {
  shorten(element.role);
  shorten(element.subrole);
  shorten(element.title);
  if (element.value && element.value->size() > 4 * longestWord + 3) {
    shorten(element.value);  // an agent that keeps to the protocol has done so
  }
  element.actions.resize(std::min(element.actions.size(), mostActions));
  for (std::string& action : element.actions) {
    shorten(action);
  }
  for (Element& child : element.children) {
    child = shortened(std::move(child));
  }
  return element;
}

void BoundedOutput::append(std::string_view bytes) {
  const std::size_t share = most_ / 2;
  const std::size_t begins = std::min(bytes.size(), share - std::min(share, head_.size()));
  head_.append(bytes.substr(0, begins));
  tail_.append(bytes.substr(begins));
  if (tail_.size() > 2 * share) {
    omitted_ += tail_.size() - share;
    tail_.erase(0, tail_.size() - share);
  }
}

std::string BoundedOutput::text() const {
  if (!truncated()) {
    return utf8Of(head_ + tail_);
  }
  std::string_view end = tail_;
  const std::size_t surplus = end.size() - std::min(end.size(), most_ / 2);
  end.remove_prefix(surplus);
  return utf8Of(head_) + "\n[" + std::to_string(omitted_ + surplus) + " bytes left out here]\n" +
         utf8Of(end);
}

}  // namespace tervain::mcp
