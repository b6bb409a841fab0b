#pragma once

#include <cstddef>
#include <string_view>

namespace tervain {

/// Encodes the beginning of `bytes`, as much of it as this processor has a fast way for: 4 digits,
/// slashes unescaped, for each 3 bytes. Returns how many bytes that was, a multiple of 3 and
/// perhaps none. `out` must have room for the digits of all of them. Each processor's folder has
/// its own.
std::size_t encodeDigitsFast(char* out, std::string_view bytes);

}  // namespace tervain
