#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "TemporaryFolder.h"
#include "doubles/Doubles.h"
#include "runtime/Runtime.h"

/// What every test program starts with: the classes loaded, a home folder of its own, and what
/// AppKit allows on the main thread only.
inline int runTests(int argc, char** argv, const std::function<int()>& run) {
  const TemporaryFolder home;
  ::setenv("HOME", home.path.c_str(), 1);
  runtime::start();
  @autoreleasepool {
    for (const char* name : {"NSResponder", "NSMenu", "NSMenuItem", "NSStatusBar", "NSStatusItem",
                             "NSAlert", "CALayer"})
      runtime::requireMainThread(name);
    testing::InitGoogleTest(&argc, argv);
    const int result = run();
    doubles::reset();
    return result;
  }
}
