#pragma once

#include <cstdint>

namespace tervain {

/// Whether a double, cut or rounded to a whole number, fits 64 bits. False for what is not finite.
inline bool fitsInt64(double value) {
  constexpr double end = 9223372036854775808.0;  // 2^63
  return value >= -end && value < end;
}

/// The nearest integer, halves away from zero. A value that is not finite, or out of range, is a
/// fatal error.
std::int64_t roundedToInteger(double value);

}  // namespace tervain
