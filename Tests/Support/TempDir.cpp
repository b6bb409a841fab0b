#include "Support/TempDir.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace tervain::test {

TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "tervain-XXXXXX").string();
  dir_ = mkdtemp(name.data());
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::string TempDir::path(std::string_view name) const {
  return name.empty() ? dir_.string() : (dir_ / name).string();
}

void TempDir::write(std::string_view name, std::string_view content) const {
  std::ofstream(dir_ / name, std::ios::binary) << content;
}

bool TempDir::has(std::string_view name) const {
  return std::filesystem::exists(dir_ / name);
}

}  // namespace tervain::test
