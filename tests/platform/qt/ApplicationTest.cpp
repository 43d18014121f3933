#include "platform/Application.h"

#include <gtest/gtest.h>

#include <string>

#include "Shell.h"

namespace {

/// What the probe prints on both of its outputs, and its exit status.
std::string outputWith(const std::string& arguments) {
  return outputOf("exec 2>&1; " APPLICATION_PROBE " " + arguments + "; echo $?");
}

const std::string path = APPLICATION_PROBE;
const std::string nul(1, '\0');

TEST(Application, tellsItsDelegateAndEndsWhenAsked) {
  EXPECT_EQ(outputWith(""), "launched\n" + path + nul + "returned\n0\n");
}

TEST(Application, argumentsAreTheProcesssOwnInTheirOrder) {
  EXPECT_EQ(outputWith("-style x '' --show-id -platform 'a b' -geometry"),
            "launched\n" + path + nul + "-style" + nul + "x" + nul + nul + "--show-id" + nul +
                "-platform" + nul + "a b" + nul + "-geometry" + nul + "returned\n0\n");
}

TEST(Application, endsWhileAnAlertIsOpen) {
  EXPECT_EQ(outputWith("--alert"),
            "launched\n" + path + nul + "--alert" + nul + "response 0\nreturned\n0\n");
}

TEST(Application, thatIsEndedBeforeItRunsDoesNotStart) {
  EXPECT_EQ(outputWith("--early"), "returned\n0\n");
}

}  // namespace
