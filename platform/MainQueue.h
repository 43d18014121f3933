#pragma once

#include <functional>

/// The queue of blocks that run one after another on the main thread. Any thread may post; a block
/// posted after the application has ended may never run.
namespace platform::MainQueue {

/// Runs `block` on the main thread soon, in the order posted, never before returning.
void async(std::function<void()> block);

/// Runs `block` on the main thread `seconds` from now.
void asyncAfter(double seconds, std::function<void()> block);

}  // namespace platform::MainQueue
