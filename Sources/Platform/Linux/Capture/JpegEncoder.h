#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tervain::Linux {

/// Encodes pictures as JPEG. It keeps its tables and its memory for the next picture, and is for
/// one thread at a time.
class JpegEncoder {
 public:
  JpegEncoder();

  /// Pixels lie row by row without gaps, each with blue in its lowest byte, then green and red. The
  /// quality is 0 to 1. Nothing when there is no memory, or the size is more than JPEG allows.
  std::optional<std::string> encode(const std::uint32_t* pixels, int width, int height,
                                    double quality);

 private:
  struct Destroy {
    void operator()(void* encoder) const;
  };
  struct Free {
    void operator()(unsigned char* buffer) const;
  };

  bool reserve(unsigned long size);

  std::unique_ptr<void, Destroy> encoder_;
  std::unique_ptr<unsigned char, Free> buffer_;
  unsigned long capacity_ = 0;
};

}  // namespace tervain::Linux
