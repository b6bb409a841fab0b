#include "Platform/AutoreleasePool.h"

namespace tervain::Platform {

AutoreleasePool::AutoreleasePool() : pool_(nullptr) {}
AutoreleasePool::~AutoreleasePool() = default;

}  // namespace tervain::Platform
