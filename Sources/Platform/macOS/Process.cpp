#include "Platform/Process.h"

#include <dispatch/dispatch.h>

namespace tervain::Platform {

/// launchd hands sockets over too, but none of vsock.
std::optional<UniqueFD> inheritedListener() {
  return std::nullopt;
}

void runMainLoop() {
  dispatch_main();
}

}  // namespace tervain::Platform
