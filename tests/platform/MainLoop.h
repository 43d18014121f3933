#pragma once

#include <functional>

/// Runs the main thread's event loop until `condition` holds, at most `seconds` long. Returns
/// whether it holds.
bool runMainLoopUntil(const std::function<bool()>& condition, double seconds = 10);

/// Runs the main thread's event loop for that long.
inline void runMainLoop(double seconds) {
  runMainLoopUntil([] { return false; }, seconds);
}
