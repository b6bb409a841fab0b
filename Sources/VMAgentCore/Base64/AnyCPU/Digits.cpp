#if !defined(__x86_64__) && !defined(__aarch64__)

#include "VMAgentCore/Base64/Digits.h"

namespace tervain::Base64 {

Progress encodeFast(char* /*out*/, std::string_view /*bytes*/) {
  return {};
}

Progress decodeFast(char* /*out*/, std::string_view /*digits*/) {
  return {};
}

Progress unescapeFast(char* /*out*/, std::string_view /*text*/) {
  return {};
}

}  // namespace tervain::Base64

#endif
