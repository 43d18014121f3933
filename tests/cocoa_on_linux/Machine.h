#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include "TemporaryFolder.h"
#include "doubles/Doubles.h"
#include "runtime/Runtime.h"

extern "C" void* objc_autoreleasePoolPush();
extern "C" void objc_autoreleasePoolPop(void* pool);

/// What remains of a test's objects, by class: all but those that live as long as the process.
inline std::map<std::string, int> leftBehind() {
  auto living = runtime::livingInstances();
  for (const char* name : {"NSApplication", "NSColor", "NSPasteboard", "NSStatusBar", "NSWorkspace",
                           "OS_dispatch_queue", "RecordingFileManager", "RecordingRunLoop"})
    living.erase(name);
  return living;
}

/// A test on a Mac on which nothing has happened. The home folder is the process's, as the product
/// looks some of it up but once; what was in it is gone.
class Machine : public testing::Test {
 protected:
  Machine() {
    for (const auto& entry : std::filesystem::directory_iterator(home))
      std::filesystem::remove_all(entry.path());
    NSUserDefaults* defaults = NSUserDefaults.standardUserDefaults;
    [defaults removeObjectForKey:@"port"];
    [defaults removeObjectForKey:@"vlx_welcomed"];
  }
  ~Machine() override { drain(); }

  /// Ends the pool that the test ran in, and whatever is still under way.
  void drain() {
    if (pool != nullptr) objc_autoreleasePoolPop(std::exchange(pool, nullptr));
    doubles::reset();
  }

  const std::filesystem::path home = ::getenv("HOME");

 private:
  void* pool = objc_autoreleasePoolPush();
};

inline std::string text(NSString* string) {
  return string == nil ? "" : string.UTF8String;
}
