#pragma once

#include <vector>

#include "Platform/Linux/Windows.h"

namespace tervain::fuzz {

/// The windows that take the X server's place; they are at every point. To be set before an
/// operation is asked for.
std::vector<X11::Window>& scriptedWindows();

}  // namespace tervain::fuzz
