#include "Fuzz/Fuzz.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace tervain::fuzz {

void require(bool holds, std::string_view what) {
  if (!holds) {
    std::cerr << "WRONG: " << what << std::endl;
    std::abort();
  }
}

std::vector<std::string_view> pieces(std::string_view input) {
  const std::string_view sizes = input.substr(0, input.find('\n'));
  input.remove_prefix(std::min(sizes.size() + 1, input.size()));
  std::vector<std::string_view> result;
  for (std::size_t i = 0; !input.empty(); ++i) {
    const std::size_t size = sizes.empty()
                                 ? input.size()
                                 : static_cast<unsigned char>(sizes[i % sizes.size()] - ' ') + 1U;
    result.push_back(input.substr(0, size));
    input.remove_prefix(result.back().size());
  }
  return result;
}

}  // namespace tervain::fuzz
