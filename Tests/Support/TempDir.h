#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tervain::test {

/// A folder of the test's own, removed with all it holds.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  [[nodiscard]] std::string path(std::string_view name = "") const;
  void write(std::string_view name, std::string_view content) const;
  [[nodiscard]] bool has(std::string_view name) const;

 private:
  std::filesystem::path dir_;
};

}  // namespace tervain::test
