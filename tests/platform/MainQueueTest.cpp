#include "platform/MainQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "MainLoop.h"

namespace {

namespace MainQueue = platform::MainQueue;
using Clock = std::chrono::steady_clock;

TEST(MainQueueContract, blocksRunInTheOrderPostedButNeverBeforeReturning) {
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) MainQueue::async([&order, i] { order.push_back(i); });
  EXPECT_TRUE(order.empty());
  ASSERT_TRUE(runMainLoopUntil([&] { return order.size() == 100; }));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(MainQueueContract, blocksFromOtherThreadsRunOnTheMainThread) {
  const auto mainThread = std::this_thread::get_id();
  constexpr int threadCount = 4;
  constexpr int blockCount = 250;
  std::vector<std::vector<int>> seen(threadCount);
  int total = 0;
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < blockCount; ++i) {
        MainQueue::async([&, thread, i] {
          EXPECT_EQ(std::this_thread::get_id(), mainThread);
          seen[thread].push_back(i);
          ++total;
        });
      }
    });
  }
  EXPECT_TRUE(runMainLoopUntil([&] { return total == threadCount * blockCount; }));
  for (std::thread& thread : threads) thread.join();
  for (const auto& order : seen) {
    ASSERT_EQ(order.size(), std::size_t{blockCount});
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  }
}

TEST(MainQueueContract, aBlockMayPostAnother) {
  int count = 0;
  std::function<void()> block = [&] {
    if (++count < 50) MainQueue::async(block);
  };
  MainQueue::async(block);
  EXPECT_TRUE(runMainLoopUntil([&] { return count == 50; }));
}

TEST(MainQueueContract, aBlockIsReleasedAfterItRan) {
  const auto captured = std::make_shared<int>(0);
  MainQueue::async([captured] { ++*captured; });
  MainQueue::asyncAfter(0.01, [captured] { ++*captured; });
  EXPECT_TRUE(runMainLoopUntil([&] { return *captured == 2 && captured.use_count() == 1; }));
}

TEST(MainQueueContract, aDelayedBlockDoesNotComeEarly) {
  const auto mainThread = std::this_thread::get_id();
  std::atomic<bool> ran = false;
  Clock::time_point start;
  Clock::time_point end;
  std::thread([&] {
    start = Clock::now();
    MainQueue::asyncAfter(0.15, [&] {
      EXPECT_EQ(std::this_thread::get_id(), mainThread);
      end = Clock::now();
      ran = true;
    });
  }).join();
  ASSERT_TRUE(runMainLoopUntil([&] { return ran.load(); }));
  EXPECT_GE(end - start, std::chrono::milliseconds(149));
}

TEST(MainQueueContract, delayedBlocksComeInTheOrderOfTheirTimes) {
  std::vector<int> order;
  MainQueue::async([&] { order.push_back(1); });
  MainQueue::asyncAfter(0.8, [&] { order.push_back(3); });
  MainQueue::asyncAfter(0.05, [&] { order.push_back(2); });
  ASSERT_TRUE(runMainLoopUntil([&] { return order.size() == 3; }));
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST(MainQueueContract, aDelayOfNothingStillReturnsFirst) {
  bool ran = false;
  MainQueue::asyncAfter(0, [&] { ran = true; });
  EXPECT_FALSE(ran);
  EXPECT_TRUE(runMainLoopUntil([&] { return ran; }));
}

}  // namespace
