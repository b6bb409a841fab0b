#pragma once

#include <optional>
#include <string>

#include "TervainVMAgent/OperationSettings.h"

namespace tervain {

/// Launches an application, or brings it up: the bundle of this name in the first of the folders
/// that has it, else whatever the system knows by the name. Nothing when that works, or when the
/// system has not answered about a bundle within `launchLimit`, as it is then taken to be launching
/// still; else why it fails, in the words for the host.
std::optional<std::string> launchApplication(const std::string& name,
                                             const OperationSettings& settings);

}  // namespace tervain
