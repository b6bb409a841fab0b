#include "VMAgentCore/OwnPath.h"

#include <filesystem>
#include <system_error>

namespace tervain {

std::string ownPath() {
  std::error_code unknown;
  return std::filesystem::read_symlink("/proc/self/exe", unknown).string();
}

}  // namespace tervain
