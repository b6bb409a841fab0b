#include "Platform/Process.h"

#import <Foundation/Foundation.h>

namespace tervain::Platform {

void prepareForThreads() {
  // The frameworks guard their state only once a thread of their own kind has been started; they
  // don't notice those of C++.
  [NSThread detachNewThreadWithBlock:^{
  }];
}

void runMainLoop() {
  // Not dispatch_main: that ends the main thread, and what AppKit knows of running applications,
  // the frontmost one above all, changes only when the main thread's run loop turns. It serves the
  // main dispatch queue as well, for which alone it goes on for ever. What a turn has autoreleased
  // goes with it.
  constexpr CFTimeInterval ages = 1e10;
  for (;;) {
    @autoreleasepool {
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, ages, /*returnAfterSourceHandled=*/true);
    }
  }
}

}  // namespace tervain::Platform
