#pragma once

#include <functional>

#include "platform/MainQueue.h"

/// Runs the main thread's event loop until `condition` holds, at most `seconds` long. Returns
/// whether it holds.
bool runMainLoopUntil(const std::function<bool()>& condition, double seconds = 10);

/// Runs `block` from the main thread's event loop, as the application runs what it does.
inline void performOnMainLoop(const std::function<void()>& block) {
  bool isDone = false;
  platform::MainQueue::async([&] {
    block();
    isDone = true;
  });
  while (!runMainLoopUntil([&] { return isDone; })) {
  }
}

/// Runs the main thread's event loop for that long.
inline void runMainLoop(double seconds) {
  runMainLoopUntil([] { return false; }, seconds);
}
