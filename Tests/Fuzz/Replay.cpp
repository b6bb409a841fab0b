// Runs a fuzz target over files and the files in folders, where there is no libFuzzer.
#include <filesystem>
#include <iostream>

#include "Fuzz/Fuzz.h"
#include "Support/Program.h"

namespace fs = std::filesystem;

namespace {

int replay(const fs::path& file) {
  std::cout << file.string() << std::endl;  // before it is run, in case it ends this
  const std::string input = tervain::test::textOf(file.string());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      count += replay(argv[i]);
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) {
      count += replay(entry.path());
    }
  }
  return count > 0 ? 0 : 1;
}
