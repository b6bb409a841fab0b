#include <cstdio>
#include <span>
#include <string_view>

#include "TervainVMAgent/Checkup.h"
#include "TervainVMAgent/StartUp.h"

namespace {

constexpr const char* usage =
    "usage: TervainVMAgent [--log FILE]    serves hosts for good\n"
    "       TervainVMAgent --check         says what the agent lacks in this guest\n"
    "       TervainVMAgent --check --reached    the same for a host that has reached it\n";

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> arguments(argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0));
  if (arguments.empty()) {
    return tervain::runAgent();
  }
  const std::string_view first = arguments.front();
  if (first == "--log" && arguments.size() == 2) {
    return tervain::runAgent(arguments.back());
  }
  const bool isReached = arguments.size() == 2 && arguments.back() == std::string_view("--reached");
  if (first == "--check" && (arguments.size() == 1 || isReached)) {
    return tervain::runCheckup(isReached);
  }
  std::fputs(usage, stderr);
  constexpr int misused = 2;
  return misused;
}
