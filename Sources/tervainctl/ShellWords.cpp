#include "tervainctl/ShellWords.h"

namespace tervain::ctl {
namespace {

constexpr std::string_view blanks = " \t";

/// Takes quotes with what is in them off the front of the text. False when they do not end.
bool takeQuoted(std::string_view& text, std::string& word) {
  const char quote = text.front();
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == quote) {
      text.remove_prefix(i + 1);
      return true;
    }
    const bool escapes = quote == '"' && text[i] == '\\' && i + 1 < text.size() &&
                         (text[i + 1] == quote || text[i + 1] == '\\');
    i += escapes ? 1 : 0;
    word += text[i];
  }
  return false;
}

/// Takes a word off the front of the text. Nothing when it does not end.
std::optional<std::string> takeWord(std::string_view& text) {
  std::string word;
  while (!text.empty() && blanks.find(text.front()) == std::string_view::npos) {
    if (text.front() == '"' || text.front() == '\'') {
      if (!takeQuoted(text, word)) {
        return std::nullopt;
      }
      continue;
    }
    if (text.front() == '\\') {
      text.remove_prefix(1);
      if (text.empty()) {
        return std::nullopt;
      }
    }
    word += text.front();
    text.remove_prefix(1);
  }
  return word;
}

}  // namespace

std::optional<Words> splitShellWords(std::string_view line) {
  Words words;
  for (;;) {
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    if (line.empty() || line.front() == '#') {
      return words;
    }
    auto word = takeWord(line);
    if (!word) {
      return std::nullopt;
    }
    words.push_back(*std::move(word));
  }
}

}  // namespace tervain::ctl
