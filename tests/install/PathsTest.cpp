#include "install/Paths.h"

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;
using PathsTest = fakes::PlatformTest;

TEST_F(PathsTest, supportFolderEndsInASlash) {
  EXPECT_EQ(Paths::supportDir().string(), "/Users/ann/Library/Application Support/VelmorPellix/");
}

TEST_F(PathsTest, guardIsInTheSupportFolder) {
  EXPECT_EQ(Paths::guardBinary().string(),
            "/Users/ann/Library/Application Support/VelmorPellix/velmor-guard");
}

TEST_F(PathsTest, supportFolderIsLookedUpOnce) {
  const auto before = Paths::supportDir();
  platform().applicationSupport = {"/elsewhere"};
  EXPECT_EQ(Paths::supportDir(), before);
}

TEST_F(PathsTest, launchAgentsFollowTheHomeFolder) {
  EXPECT_EQ(Paths::launchAgent().string(),
            "/Users/ann/Library/LaunchAgents/com.velmor.pellix.plist");
  EXPECT_EQ(Paths::menubarLaunchAgent().string(),
            "/Users/ann/Library/LaunchAgents/com.velmor.pellix.menubar.plist");
  platform().home = "/Users/bob";
  EXPECT_EQ(Paths::launchAgent().string(),
            "/Users/bob/Library/LaunchAgents/com.velmor.pellix.plist");
  EXPECT_EQ(Paths::menubarLaunchAgent().string(),
            "/Users/bob/Library/LaunchAgents/com.velmor.pellix.menubar.plist");
}

TEST_F(PathsTest, fileNamesAreTheLabels) {
  EXPECT_EQ(Paths::serviceLabel, "com.velmor.pellix");
  EXPECT_EQ(Paths::menubarLabel, "com.velmor.pellix.menubar");
  EXPECT_EQ(Paths::launchAgent().filename(), std::string(Paths::serviceLabel) + ".plist");
  EXPECT_EQ(Paths::menubarLaunchAgent().filename(), std::string(Paths::menubarLabel) + ".plist");
}

// A process of its own, in which nothing has been looked up yet.
class PathsDeathTest : public fakes::PlatformTest {
 protected:
  PathsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(PathsDeathTest, noApplicationSupportFolderStopsTheProcess) {
  platform().applicationSupport.clear();
  const auto message = "^Fatal error: Unexpectedly found nil while unwrapping an Optional value\n$";
  EXPECT_DEATH(Paths::supportDir(), message);
  EXPECT_DEATH(Paths::guardBinary(), message);
}

TEST_F(PathsDeathTest, launchAgentsNeedNoApplicationSupportFolder) {
  platform().applicationSupport.clear();
  EXPECT_EXIT(
      {
        const bool named = !Paths::launchAgent().empty() && !Paths::menubarLaunchAgent().empty();
        std::_Exit(named ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace pellix
