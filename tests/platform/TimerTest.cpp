#include "platform/Timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "MainLoop.h"

namespace {

using platform::Timer;

TEST(TimerContract, aTimerThatRepeatsFiresAgainAndAgain) {
  int count = 0;
  const auto start = std::chrono::steady_clock::now();
  const auto timer = Timer::scheduledTimer(0.05, true, [&] { ++count; });
  EXPECT_EQ(count, 0);
  ASSERT_TRUE(runMainLoopUntil([&] { return count >= 4; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(199));
}

TEST(TimerContract, aTimerThatDoesNotRepeatFiresOnce) {
  int count = 0;
  const auto timer = Timer::scheduledTimer(0.01, false, [&] { ++count; });
  ASSERT_TRUE(runMainLoopUntil([&] { return count == 1; }));
  runMainLoop(0.1);
  EXPECT_EQ(count, 1);
}

TEST(TimerContract, itFiresOnTheMainThread) {
  std::thread::id thread;
  const auto timer =
      Timer::scheduledTimer(0.01, false, [&] { thread = std::this_thread::get_id(); });
  EXPECT_TRUE(runMainLoopUntil([&] { return thread == std::this_thread::get_id(); }));
}

TEST(TimerContract, itStopsWhenItGoes) {
  int count = 0;
  auto timer = Timer::scheduledTimer(0.01, true, [&] { ++count; });
  ASSERT_TRUE(runMainLoopUntil([&] { return count >= 2; }));
  timer.reset();
  const int before = count;
  runMainLoop(0.1);
  EXPECT_EQ(count, before);
}

TEST(TimerContract, itMayGoBeforeItFires) {
  bool fired = false;
  Timer::scheduledTimer(0.01, false, [&] { fired = true; }).reset();
  runMainLoop(0.1);
  EXPECT_FALSE(fired);
}

TEST(TimerContract, itsBlockMayEndIt) {
  for (const bool repeats : {true, false}) {
    std::unique_ptr<Timer> timer;
    int count = 0;
    const auto captured = std::make_shared<int>(7);
    timer = Timer::scheduledTimer(0.01, repeats, [&timer, &count, captured] {
      timer.reset();
      count += *captured;
    });
    ASSERT_TRUE(runMainLoopUntil([&] { return count > 0; }));
    runMainLoop(0.1);
    EXPECT_EQ(count, 7);
    EXPECT_EQ(captured.use_count(), 1);
  }
}

TEST(TimerContract, itsBlockMayReplaceIt) {
  std::unique_ptr<Timer> timer;
  int first = 0;
  int second = 0;
  timer = Timer::scheduledTimer(0.01, true, [&] {
    ++first;
    timer = Timer::scheduledTimer(0.01, true, [&] { ++second; });
  });
  EXPECT_TRUE(runMainLoopUntil([&] { return second >= 3; }));
  EXPECT_EQ(first, 1);
}

TEST(TimerContract, aLateFiringIsNotMadeUpFor) {
  using Clock = std::chrono::steady_clock;
  int count = 0;
  Clock::time_point endOfFirst;
  const auto timer = Timer::scheduledTimer(0.05, true, [&] {
    if (++count > 1) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    endOfFirst = Clock::now();
  });
  ASSERT_TRUE(runMainLoopUntil([&] { return count >= 1; }));
  runMainLoop(0.12);
  const std::chrono::duration<double> time = Clock::now() - endOfFirst;
  EXPECT_LE(count, 3 + time.count() / 0.05);  // had they been made up for: 7 more
}

}  // namespace
