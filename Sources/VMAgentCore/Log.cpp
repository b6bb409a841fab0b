#include "VMAgentCore/Log.h"

#include <unistd.h>

#include "VMAgentCore/IO.h"

namespace tervain {

void writeLogLine(std::span<const std::string_view> parts) {
  char line[maxLogLine];  // NOLINT(*-member-init): written before it is read
  std::size_t length = 0;
  const auto add = [&](std::string_view text) {
    length += text.copy(line + length, maxLogLine - 1 - length);
  };
  add("[TervainVMAgent] ");
  for (const std::string_view part : parts) {
    add(part);
  }
  line[length++] = '\n';
  writeAll(STDERR_FILENO, {line, length});
}

}  // namespace tervain
