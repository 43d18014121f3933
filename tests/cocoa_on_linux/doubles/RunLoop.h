#pragma once

#import <Foundation/Foundation.h>

#include <functional>

/// The main thread's run loop behind `NSRunLoop`, `NSTimer` and Dispatch.
namespace doubles::loop {

void reset();
double now();
NSRunLoopMode currentMode();

/// Runs in `mode` whatever is due. False if nothing was.
bool pass(NSRunLoopMode mode);
/// Passes in `mode` until `condition` holds or `seconds` of real time are over. False in the latter
/// case.
bool runInMode(NSRunLoopMode mode, const std::function<bool()>& condition, double seconds);

/// The mode of what follows, as long as this object lives.
class ModeScope {
 public:
  explicit ModeScope(NSRunLoopMode mode);
  ~ModeScope();
  ModeScope(const ModeScope&) = delete;
  ModeScope& operator=(const ModeScope&) = delete;
};

}  // namespace doubles::loop
