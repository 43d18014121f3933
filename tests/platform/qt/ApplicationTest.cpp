#include "platform/Application.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/Task.h"

namespace {

using platform::Task;

/// What the probe prints on both of its outputs.
std::string output(const std::string& arguments) {
  const std::string script = "exec 2>&1; " APPLICATION_PROBE " " + arguments + "; echo $?";
  Task task("/bin/sh", {"-c", script}, Task::Output::captured);
  task.launch();
  task.waitUntilExit();
  return task.readStandardOutputToEnd();
}

const std::string path = APPLICATION_PROBE;
const std::string nul(1, '\0');

TEST(Application, tellsItsDelegateAndEndsWhenAsked) {
  EXPECT_EQ(output(""), "launched\n" + path + nul + "returned\n0\n");
}

TEST(Application, argumentsAreTheProcesssOwnInTheirOrder) {
  EXPECT_EQ(output("-style x '' --show-id -platform 'a b' -geometry"),
            "launched\n" + path + nul + "-style" + nul + "x" + nul + nul + "--show-id" + nul +
                "-platform" + nul + "a b" + nul + "-geometry" + nul + "returned\n0\n");
}

TEST(Application, endsWhileAnAlertIsOpen) {
  EXPECT_EQ(output("--alert"),
            "launched\n" + path + nul + "--alert" + nul + "response 0\nreturned\n0\n");
}

TEST(Application, thatIsEndedBeforeItRunsDoesNotStart) {
  EXPECT_EQ(output("--early"), "returned\n0\n");
}

}  // namespace
