#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace tervain::test {

/// The words of a text, for tables whose entries hold no blanks.
inline std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

}  // namespace tervain::test
