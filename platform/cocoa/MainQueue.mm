#include "platform/MainQueue.h"

#import <Foundation/Foundation.h>

// Blocks run in a pool of their own: AppKit drains its pool after an event, of which there may be
// none for days.
namespace platform::MainQueue {

void async(std::function<void()> block) {
  dispatch_async(dispatch_get_main_queue(), ^{
    @autoreleasepool {
      block();
    }
  });
}

void asyncAfter(double seconds, std::function<void()> block) {
  const auto delay = static_cast<int64_t>(seconds * static_cast<double>(NSEC_PER_SEC));
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, delay), dispatch_get_main_queue(), ^{
    @autoreleasepool {
      block();
    }
  });
}

}  // namespace platform::MainQueue
