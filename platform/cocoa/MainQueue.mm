#include "platform/MainQueue.h"

#import <Foundation/Foundation.h>

namespace platform::MainQueue {

void async(std::function<void()> block) {
  dispatch_async(dispatch_get_main_queue(), ^{
    block();
  });
}

void asyncAfter(double seconds, std::function<void()> block) {
  const auto delay = static_cast<int64_t>(seconds * static_cast<double>(NSEC_PER_SEC));
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, delay), dispatch_get_main_queue(), ^{
    block();
  });
}

}  // namespace platform::MainQueue
