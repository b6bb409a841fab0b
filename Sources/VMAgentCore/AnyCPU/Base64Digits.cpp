#include "VMAgentCore/Base64Digits.h"

namespace tervain {

std::size_t encodeDigitsFast(char* /*out*/, std::string_view /*bytes*/) {
  return 0;
}

}  // namespace tervain
