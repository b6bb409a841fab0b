// Runs a fuzz target over the files in a folder, where there is no libFuzzer.
#include <filesystem>
#include <iostream>

#include "Fuzz/Fuzz.h"
#include "Support/Program.h"

int main(int /*argc*/, char** argv) {
  int count = 0;
  // Absolute, as a target may change the folder.
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::absolute(argv[1]))) {
    std::cout << entry.path().string() << std::endl;  // before it is run, in case it ends this
    const std::string input = tervain::test::textOf(entry.path());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    ++count;
  }
  return count > 0 ? 0 : 1;
}
