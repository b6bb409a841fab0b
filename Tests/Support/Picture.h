#pragma once

#include <turbojpeg.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace tervain::test {

/// A JPEG picture, decoded; empty when it is none.
struct Picture {
  int width = 0;
  int height = 0;
  int subsampling = -1;
  std::vector<unsigned char> rgb;

  explicit Picture(std::string_view jpeg) {
    const tjhandle decoder = tjInitDecompress();
    const auto* const bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    int space = 0;
    tjDecompressHeader3(decoder, bytes, jpeg.size(), &width, &height, &subsampling, &space);
    rgb.resize(static_cast<std::size_t>(3 * width * height));
    tjDecompress2(decoder, bytes, jpeg.size(), rgb.data(), width, 0, height, TJPF_RGB, 0);
    tjDestroy(decoder);
  }

  /// How far the colour of a pixel is from another, in the worst of its parts.
  [[nodiscard]] int distance(int x, int y, unsigned colour) const {
    const unsigned char* const pixel = &rgb.at(static_cast<std::size_t>(3 * (y * width + x)));
    int worst = 0;
    for (int part = 0; part < 3; ++part) {
      const int wanted = static_cast<int>(colour >> (16 - 8 * part) & 0xFFU);
      worst = std::max(worst, std::abs(pixel[part] - wanted));
    }
    return worst;
  }
};

}  // namespace tervain::test
