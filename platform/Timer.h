#pragma once

#include <functional>
#include <memory>

namespace platform {

/// A timer on the main run loop; it stops for good when this object goes. Main thread only.
class Timer {
 public:
  /// Calls `block` on the main thread `interval` seconds from now, and every `interval` seconds
  /// after that if it repeats. A firing that comes late is not made up for.
  static std::unique_ptr<Timer> scheduledTimer(double interval, bool repeats,
                                               std::function<void()> block);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

 private:
  struct Implementation;
  explicit Timer(std::unique_ptr<Implementation> implementation);
  std::unique_ptr<Implementation> implementation;
};

}  // namespace platform
