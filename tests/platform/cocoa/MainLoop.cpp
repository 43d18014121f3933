#include "MainLoop.h"

#include <CoreFoundation/CoreFoundation.h>

bool runMainLoopUntil(const std::function<bool()>& condition, double seconds) {
  const CFAbsoluteTime deadline = CFAbsoluteTimeGetCurrent() + seconds;
  while (!condition() && CFAbsoluteTimeGetCurrent() < deadline) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.005, false);
  }
  return condition();
}
