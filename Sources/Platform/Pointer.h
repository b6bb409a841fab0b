#pragma once

#include <optional>

#include "Platform/Geometry.h"

namespace tervain::Platform {

/// Where the pointer is. Nothing when that can't be found out.
std::optional<Point> pointerLocation();

}  // namespace tervain::Platform
