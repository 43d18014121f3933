#include "platform/Task.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

using platform::Task;

std::string outputOf(const std::string& script) {
  Task task("/bin/sh", {"-c", script}, Task::Output::captured);
  task.launch();
  task.waitUntilExit();
  return task.readStandardOutputToEnd();
}

TEST(Task, aChildThatPrintsMuchIsNotStuck) {
  EXPECT_EQ(outputOf("head -c 10485760 /dev/zero").size(), 10'485'760u);
}

TEST(Task, aChildThatComplainsMuchIsNotStuck) {
  EXPECT_EQ(outputOf("head -c 10485760 /dev/zero >&2; echo yes"), "yes\n");
}

TEST(Task, aGrandchildThatHoldsThePipeOpenIsNotWaitedFor) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(outputOf("sleep 20 & echo $!").find_first_not_of("0123456789\n"), std::string::npos);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

}  // namespace
