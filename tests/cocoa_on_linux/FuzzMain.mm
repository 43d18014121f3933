#include <gtest/gtest.h>

#include "Environment.h"

/// What `tests/fuzz/Replay.cpp` has for a main function.
int replay(int argc, char** argv);

int main(int argc, char** argv) {
  return runTests(argc, argv, [argc, argv] {
    doubles::reset();
    const int result = replay(argc, argv);
    return testing::UnitTest::GetInstance()->Failed() ? 1 : result;
  });
}
