#include "VMAgentCore/Log.h"

#include <unistd.h>

#include <string>

#include "VMAgentCore/IO.h"

namespace tervain {

void agentLog(std::string_view message) {
  std::string line = "[TervainVMAgent] ";
  line += message;
  line += '\n';
  writeAll(STDERR_FILENO, line);
}

}  // namespace tervain
