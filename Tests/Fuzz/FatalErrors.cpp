// Takes the place of VMAgentCore/FatalError.cpp: what ends the agent only ends the input here.
#include "Fuzz/Fuzz.h"
#include "VMAgentCore/FatalError.h"

namespace tervain {

void fatalError(std::string_view why) {
  throw fuzz::FatalError{std::string(why)};
}

}  // namespace tervain
