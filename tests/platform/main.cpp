#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "TemporaryFolder.h"
#include "platform/Application.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // On no one's screen, and not in anyone's defaults.
  ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  const TemporaryFolder configuration;
  ::setenv("XDG_CONFIG_HOME", configuration.path.c_str(), 1);
  // A test's server may write to a connection that the client has closed.
  std::signal(SIGPIPE, SIG_IGN);
  const platform::Application application;
  return RUN_ALL_TESTS();
}
