#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "VMAgentCore/Environment.h"

namespace tervain::Platform {

/// A job as `launchctl print` shows it. What is not shown stays empty.
struct LaunchdJob {
  std::string state;
  std::string lastExit;  ///< the last exit code, with launchd's word for it
  std::optional<pid_t> pid;
  Environment environment;
};

LaunchdJob parseLaunchdJob(std::string_view printed);

}  // namespace tervain::Platform
