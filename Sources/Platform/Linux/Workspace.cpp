#include "Platform/Workspace.h"

#include <algorithm>
#include <bit>
#include <fstream>
#include <string_view>

#include "Platform/Linux/Accessibility/Applications.h"
#include "Platform/Linux/X11/Windows.h"
#include "VMAgentCore/Json.h"

namespace tervain::Platform {

using namespace Linux;

namespace {

/// How long an application is waited for to tell its name.
constexpr std::chrono::milliseconds nameLimit{500};

std::optional<std::string> accessibleName(pid_t pid) {
  auto* const connection = AccessibilityBus::Connection::ofThisThread();
  const auto root = connection ? applicationOf(*connection, pid, nameLimit) : std::nullopt;
  if (!root) {
    return std::nullopt;
  }
  std::string name = connection->askNow(Atspi::getName(*connection, *root), nameLimit).value;
  return name.empty() ? std::nullopt : std::optional(std::move(name));
}

/// What can be shown of a name that may hold any bytes, and that the kernel may have cut off in the
/// middle of a character.
std::string readableName(std::string_view bytes) {
  constexpr std::size_t longestRest = 3;
  for (std::size_t back = 1; back <= std::min(longestRest, bytes.size()); ++back) {
    const auto byte = static_cast<unsigned char>(bytes[bytes.size() - back]);
    // The ones that lead the first byte of a character count its bytes; the others lead with one.
    const int ones = std::countl_one(byte);
    if (ones != 1) {
      bytes.remove_suffix(static_cast<std::size_t>(ones) > back ? back : 0);
      break;
    }
  }
  return utf8Of(bytes);
}

/// The name of a process's program. Nothing once it has ended, even while nobody has reaped it.
std::optional<std::string> programName(pid_t pid) {
  // Number, name in brackets, state; the name may hold anything.
  std::string stat;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), stat, '\0');
  const std::size_t begin = stat.find('(') + 1;
  const std::size_t end = stat.rfind(')');
  if (end == std::string::npos || stat.compare(end, 3, ") Z") == 0 || end <= begin) {
    return std::nullopt;
  }
  return readableName(std::string_view(stat).substr(begin, end - begin));
}

}  // namespace

std::optional<pid_t> frontmostApplication() {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  return x11 ? X11::activeProcess(*x11) : std::nullopt;
}

std::optional<std::string> applicationName(pid_t pid) {
  if (auto name = accessibleName(pid)) {
    return name;
  }
  return programName(pid);
}

}  // namespace tervain::Platform
