#include "install/Registration.h"

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;
using Registration = fakes::PlatformTest;

const std::string plist = "/Users/ann/My Agents/com.velmor.pellix.plist";
const std::string bootout = "launch /bin/launchctl [bootout] [gui/501/com.velmor.pellix]";
const std::string load = "launch /bin/launchctl [bootstrap] [gui/501] [" + plist + "]";
const std::string kickstart = "launch /bin/launchctl [kickstart] [-k] [gui/501/com.velmor.pellix]";

TEST_F(Registration, unloadsLoadsAndRestartsEachAfterTheOther) {
  Installer::bootstrap("com.velmor.pellix", plist);
  EXPECT_EQ(platform().log,
            (std::vector<std::string>{bootout, "wait", load, "wait", kickstart, "wait"}));
}

TEST_F(Registration, toolThatCannotBeStartedIsTriedThreeTimesAndForgotten) {
  platform().processes["/bin/launchctl"] = {.canBeLaunched = false};
  Installer::bootstrap("com.velmor.pellix", plist);
  const std::string wait = "wait without a process";
  EXPECT_EQ(platform().log, (std::vector<std::string>{bootout, wait, load, wait, kickstart, wait}));
}

TEST_F(Registration, oneFailedStepDoesNotStopTheNext) {
  for (const std::string& step : {bootout, load, kickstart}) {
    platform() = fakes::Platform();
    platform().failures.emplace(step, ::platform::Error("fake", 2, "No such file"));
    Installer::bootstrap("com.velmor.pellix", plist);
    EXPECT_EQ(platform().count("wait"), 2) << step;
    EXPECT_EQ(platform().log[4], kickstart) << step;
  }
}

}  // namespace
}  // namespace pellix
