#include "VMAgentCore/OwnPath.h"

#include <libproc.h>
#include <unistd.h>

namespace tervain {

std::string ownPath() {
  char path[PROC_PIDPATHINFO_MAXSIZE];
  const int length = proc_pidpath(getpid(), path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace tervain
