#include "platform/Task.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

#include "Shell.h"
#include "TemporaryFolder.h"

namespace {

using platform::Task;

TEST(Task, argumentsMayBeEmptyAndKeepTheirAccents) {
  EXPECT_EQ(outputOf("printf '[%s]' \"$@\"", {"", "ü", "u\u0308"}), "[][ü][u\u0308]");
}

TEST(Task, nothingStaysOpen) {
  const auto descriptor = [] {
    const int lowest = ::dup(STDERR_FILENO);
    ::close(lowest);
    return lowest;
  };
  const int before = descriptor();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(outputOf("echo yes"), "yes\n");
  EXPECT_EQ(descriptor(), before);
}

TEST(Task, aChildThatPrintsMuchIsNotStuck) {
  EXPECT_EQ(outputOf("head -c 10485760 /dev/zero").size(), 10'485'760u);
}

TEST(Task, aChildThatComplainsMuchIsNotStuck) {
  EXPECT_EQ(outputOf("head -c 10485760 /dev/zero >&2; echo yes"), "yes\n");
}

TEST(Task, aChildThatPrintsForEverDoesNotTakeAllMemory) {
  EXPECT_EQ(outputOf("head -c 100000000 /dev/zero").size(), 16U << 20U);
}

TEST(Task, aChildMayOpenItsOutputAnew) {
  EXPECT_EQ(outputOf("echo a; echo b > /dev/stdout; echo c >> /dev/stdout; echo d"),
            "a\nb\nc\nd\n");
}

TEST(Task, aChildThatPretendsToHavePrintedMuchIsNotBelieved) {
  EXPECT_EQ(outputOf("truncate -s 1T /dev/stdout; echo yes"), "yes\n");
}

TEST(Task, allThatWasPrintedBeforeTheEndIsRead) {
  // The pipe holds more than one reading takes.
  EXPECT_EQ(outputOf("exec /usr/bin/python3 -c 'import fcntl; fcntl.fcntl(1, 1031, 1 << 20); "
                     "print(\"x\" * 500000)'")
                .size(),
            500'001U);
}

TEST(Task, aGrandchildThatPrintsForEverIsNotWaitedFor) {
  EXPECT_EQ(outputOf("echo first; yes & :").substr(0, 6), "first\n");
}

TEST(Task, aGrandchildThatHoldsThePipeOpenIsNotWaitedFor) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(outputOf("sleep 20 & echo $!").find_first_not_of("0123456789\n"), std::string::npos);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST(Task, whatTheApplicationIgnoresStillEndsAChild) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(outputOf("kill -PIPE $$; echo alive"), "");
  std::signal(SIGPIPE, before);
}

TEST(Task, aChildThatNobodyWaitedForEndsWithItsTask) {
  const TemporaryFolder folder;
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  int reader = -1;
  {
    Task task("/bin/sh", {"-c", "exec sleep 60 > \"$0\"", pipe});
    task.launch();
    reader = ::open(pipe.c_str(), O_RDONLY | O_CLOEXEC);  // waits for the child to open it
  }
  ::fcntl(reader, F_SETFL, O_NONBLOCK);
  char byte = 0;
  EXPECT_EQ(::read(reader, &byte, 1), 0);  // nobody has it open any more
  ::close(reader);
}

}  // namespace
