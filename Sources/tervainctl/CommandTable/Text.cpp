#include "tervainctl/CommandTable/Text.h"

namespace tervain::ctl {

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (std::size_t end = text.find(separator); end != text.npos; end = text.find(separator)) {
    pieces.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  pieces.push_back(text);
  return pieces;
}

std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  for (std::size_t at = text.find(from); at != text.npos; at = text.find(from)) {
    result.append(text.substr(0, at)).append(to);
    text.remove_prefix(at + from.size());
  }
  return result.append(text);
}

std::string filled(std::string text) {
  constexpr std::size_t width = 80;
  std::size_t start = 0;  // of the line
  std::size_t blank = std::string::npos;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n') {
      start = i + 1;
      blank = std::string::npos;
    } else if (text[i] == ' ') {
      blank = i;
    }
    if (i >= start + width && blank != std::string::npos) {
      text[blank] = '\n';
      start = blank + 1;
      blank = std::string::npos;
    }
  }
  return text;
}

}  // namespace tervain::ctl
