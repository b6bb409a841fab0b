#include "VMAgentCore/Rounding.h"

#include <cmath>

#include "VMAgentCore/FatalError.h"

namespace tervain {

std::int64_t roundedToInteger(double value) {
  if (!fitsInt64(value)) {
    fatalError("a coordinate does not fit 64 bits");
  }
  return std::llround(value);
}

}  // namespace tervain
