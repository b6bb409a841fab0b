#include "Platform/AutoreleasePool.h"

namespace tervain::Platform {

AutoreleasePool::AutoreleasePool() = default;
// NOLINTNEXTLINE(performance-trivially-destructible): other ports have something to do here
AutoreleasePool::~AutoreleasePool() = default;

}  // namespace tervain::Platform
