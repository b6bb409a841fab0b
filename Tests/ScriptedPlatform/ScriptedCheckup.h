#pragma once

#include <vector>

#include "Platform/Checkup.h"

namespace tervain::test {

/// What the scripted platform finds in the session, after a service that it finds nothing wrong
/// with.
std::vector<Platform::Finding>& scriptedFindings();

}  // namespace tervain::test
