#include "platform/Timer.h"

#include <utility>

#import <AppKit/AppKit.h>

namespace platform {

struct Timer::Implementation {
  NSTimer* timer;  // the run loop owns it as well, until it is invalidated
};

Timer::Timer(std::unique_ptr<Implementation> implementationToOwn)
    : implementation(std::move(implementationToOwn)) {}

Timer::~Timer() {
  [implementation->timer invalidate];
}

// The timer fires in the default mode and while an alert is open, but not while a menu is: nobody
// waits for an answer there, and the menu could not show it. The firing comes late, once, when the
// menu closes.
std::unique_ptr<Timer> Timer::scheduledTimer(double interval, bool repeats,
                                             std::function<void()> block) {
  NSTimer* timer = [NSTimer scheduledTimerWithTimeInterval:interval
                                                   repeats:repeats
                                                     block:^(NSTimer*) {
                                                       @autoreleasepool {  // as in MainQueue
                                                         block();
                                                       }
                                                     }];
  [NSRunLoop.mainRunLoop addTimer:timer forMode:NSModalPanelRunLoopMode];
  return std::unique_ptr<Timer>(new Timer(std::make_unique<Implementation>(Implementation{timer})));
}

}  // namespace platform
