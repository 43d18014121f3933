#include <gtest/gtest.h>

#include <csignal>

#include "Environment.h"
#include "MainLoop.h"
#include "platform/Application.h"

bool runMainLoopUntil(const std::function<bool()>& condition, double seconds) {
  return doubles::runUntil(condition, seconds) || condition();
}

int main(int argc, char** argv) {
  return runTests(argc, argv, [] {
    doubles::reset();
    doubles::executable = std::filesystem::canonical("/proc/self/exe");
    // A test's server may write to a connection that the client has closed.
    std::signal(SIGPIPE, SIG_IGN);
    const platform::Application application;
    const int result = RUN_ALL_TESTS();
    // What the tests wrote there would be left in the user's own folder.
    NSDictionary* left = [NSUserDefaults.standardUserDefaults
        persistentDomainForName:NSProcessInfo.processInfo.processName];
    if (left.count > 0) NSLog(@"The tests leave preferences behind: %@", left);
    return left.count > 0 ? 1 : result;
  });
}
