#include "tervainctl/Descriptions/Descriptions.h"

#include "tervainctl/CommandTable/Text.h"

namespace tervain::ctl {

std::vector<std::string_view> spellings(const Option& option) {
  return option.spelling.empty() ? std::vector<std::string_view>() : split(option.spelling, ',');
}

std::vector<std::string> offers(const Option& option) {
  constexpr double few = 10;
  std::vector<std::string> words(option.choices.begin(), option.choices.end());
  if (option.kind == Kind::integer && option.range.most - option.range.least < few) {
    for (auto n = static_cast<int>(option.range.least); n <= option.range.most; ++n) {
      words.push_back(std::to_string(n));
    }
  }
  return words;
}

std::vector<std::string_view> placeholders(const Option& option) {
  return split(option.placeholder, ' ');
}

std::string quoted(std::string_view text, std::string_view quote) {
  return "'" + replaced(text, "'", quote) + "'";
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text.append(text.empty() ? "" : " ").append(word);
  }
  return text;
}

}  // namespace tervain::ctl
