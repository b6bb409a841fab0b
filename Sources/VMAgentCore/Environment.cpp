#include "VMAgentCore/Environment.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "VMAgentCore/FatalError.h"

extern "C" char**
    environ;  // NOLINT(readability-redundant-declaration): not every system declares it

namespace tervain {

Environment processEnvironment() {
  Environment environment;
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
      environment.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
  }
  return environment;
}

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME"); home && *home) {
    return home;
  }
  // The size that sysconf suggests is only a suggestion; entries of this size do not occur.
  std::vector<char> strings(65'536);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, strings.data(), strings.size(), &found) != 0 || !found) {
    fatalError("the user has no home directory");
  }
  return found->pw_dir;
}

}  // namespace tervain
