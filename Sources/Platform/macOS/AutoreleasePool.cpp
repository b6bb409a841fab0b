#include "Platform/AutoreleasePool.h"

// What compilers make of @autoreleasepool; no header declares it.
extern "C" void* objc_autoreleasePoolPush();
extern "C" void objc_autoreleasePoolPop(void* pool);

namespace tervain::Platform {

AutoreleasePool::AutoreleasePool() : pool_(objc_autoreleasePoolPush()) {}

AutoreleasePool::~AutoreleasePool() {
  objc_autoreleasePoolPop(pool_);
}

}  // namespace tervain::Platform
