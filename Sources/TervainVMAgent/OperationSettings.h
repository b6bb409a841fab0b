#pragma once

#include <array>
#include <chrono>
#include <span>
#include <string_view>

namespace tervain {

/// Where application bundles are looked for, in this order.
inline constexpr std::array<std::string_view, 3> standardApplicationFolders{
    "/Applications/", "/System/Applications/", "/System/Applications/Utilities/"};

/// What the operations take as given about the world. The agent uses these values; tests give
/// others.
struct OperationSettings {
  /// How long the host of a "screenshot" is kept waiting at the most.
  std::chrono::milliseconds screenshotLimit = std::chrono::seconds(15);

  /// How long "launch_app" waits for the system to acknowledge the launch of a bundle.
  std::chrono::milliseconds launchLimit = std::chrono::seconds(15);

  /// Each ends in a slash.
  std::span<const std::string_view> applicationFolders = standardApplicationFolders;
};

}  // namespace tervain
