#include "install/LaunchAgents.h"

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;
using LaunchAgents = fakes::PlatformTest;

const std::string servicePath = "/Users/ann/Library/LaunchAgents/com.velmor.pellix.plist";
const std::string menubarPath = "/Users/ann/Library/LaunchAgents/com.velmor.pellix.menubar.plist";
const std::string logs = "/Users/ann/Library/Application Support/VelmorPellix/logs";

const std::string head =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n"
    "<dict>\n";

std::string menubarText(const std::string& executable) {
  return head +
         "  <key>Label</key><string>com.velmor.pellix.menubar</string>\n"
         "  <key>ProgramArguments</key>\n"
         "  <array>\n"
         "    <string>" +
         executable +
         "</string>\n"
         "  </array>\n"
         "  <key>RunAtLoad</key><true/>\n"
         "  <key>KeepAlive</key><false/>\n"
         "  <key>ProcessType</key><string>Interactive</string>\n"
         "</dict>\n"
         "</plist>";
}

TEST_F(LaunchAgents, servicePropertyListIsExactToTheByte) {
  Installer::writeServiceLaunchAgent();
  EXPECT_EQ(platform().files.at(servicePath).content,
            head +
                "  <key>Label</key><string>com.velmor.pellix</string>\n"
                "  <key>ProgramArguments</key>\n"
                "  <array>\n"
                "    <string>/Users/ann/Library/Application Support/VelmorPellix/velmor-guard"
                "</string>\n"
                "    <string>run</string>\n"
                "    <string>--port</string>\n"
                "    <string>8787</string>\n"
                "  </array>\n"
                "  <key>RunAtLoad</key><true/>\n"
                "  <key>KeepAlive</key><true/>\n"
                "  <key>ProcessType</key><string>Background</string>\n"
                "  <key>EnvironmentVariables</key>\n"
                "  <dict><key>VLX_QUIET</key><string>1</string></dict>\n"
                "  <key>StandardOutPath</key><string>/Users/ann/Library/Application "
                "Support/VelmorPellix/logs/launchd.out.log</string>\n"
                "  <key>StandardErrorPath</key><string>/Users/ann/Library/Application "
                "Support/VelmorPellix/logs/launchd.err.log</string>\n"
                "</dict>\n"
                "</plist>");
}

TEST_F(LaunchAgents, menubarPropertyListIsExactToTheByte) {
  Installer::writeMenubarLaunchAgent();
  EXPECT_EQ(platform().files.at(menubarPath).content,
            menubarText("/Applications/Pellix.app/Contents/MacOS/pellix"));
}

TEST_F(LaunchAgents, logFolderIsMadeBeforeTheServiceIsWritten) {
  Installer::writeServiceLaunchAgent();
  EXPECT_EQ(platform().log, (std::vector<std::string>{"create " + logs, "write " + servicePath}));
}

TEST_F(LaunchAgents, withoutALogFolderNothingIsWritten) {
  const ::platform::Error error("fake", 513, "You don’t have permission.");
  platform().failures.emplace("create " + logs, error);
  try {
    Installer::writeServiceLaunchAgent();
    FAIL() << "no error";
  } catch (const ::platform::Error& thrown) {
    EXPECT_EQ(thrown, error);
  }
  EXPECT_TRUE(platform().files.empty());
}

TEST_F(LaunchAgents, noWriterCreatesTheLaunchAgentsFolder) {
  platform().folders.clear();
  EXPECT_THROW(Installer::writeServiceLaunchAgent(), ::platform::Error);
  EXPECT_THROW(Installer::writeMenubarLaunchAgent(), ::platform::Error);
  EXPECT_EQ(platform().folders, std::set<std::string>{logs}) << "only the log folder was made";
  EXPECT_TRUE(platform().files.empty());
}

TEST_F(LaunchAgents, valuesAreNotEscaped) {
  for (const std::string executable :
       {"/Applications/R&D <lab>/pellix", "/{label}/{executable}/{", "/}/{no such}"}) {
    platform().executable = executable;
    Installer::writeMenubarLaunchAgent();
    EXPECT_EQ(platform().files.at(menubarPath).content, menubarText(executable));
  }
}

// In a process of its own, in which the support folder has not been looked up yet.
TEST_F(LaunchAgents, valuesOfTheServiceAreNotEscapedEither) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  platform().applicationSupport = {"/R&D <lab>"};
  EXPECT_EXIT(
      {
        Installer::writeServiceLaunchAgent();
        const std::string& text = platform().files.at(servicePath).content;
        const bool isVerbatim =
            text.find("<string>/R&D <lab>/VelmorPellix/velmor-guard</string>") != text.npos &&
            text.find("<string>/R&D <lab>/VelmorPellix/logs/launchd.out.log</string>") != text.npos;
        std::_Exit(isVerbatim ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(LaunchAgents, withoutAnExecutablePathNothingIsTouched) {
  for (const std::optional<std::filesystem::path>& executable :
       {std::optional<std::filesystem::path>(), std::optional<std::filesystem::path>("")}) {
    platform().executable = executable;
    platform().files[menubarPath] = {.content = "old"};
    Installer::writeMenubarLaunchAgent();
    EXPECT_TRUE(platform().log.empty());
    EXPECT_EQ(platform().files.at(menubarPath).content, "old");
  }
}

TEST_F(LaunchAgents, bothAreRewrittenWhateverIsThere) {
  platform().files[servicePath] = {.content = "edited"};
  platform().files[menubarPath] = {.content = "edited"};
  for (int i = 0; i < 2; ++i) {
    Installer::writeServiceLaunchAgent();
    Installer::writeMenubarLaunchAgent();
  }
  EXPECT_EQ(platform().count("write " + servicePath), 2);
  EXPECT_EQ(platform().count("write " + menubarPath), 2);
  EXPECT_TRUE(platform().files.at(servicePath).content.ends_with("</plist>"));
  EXPECT_TRUE(platform().files.at(menubarPath).content.ends_with("</plist>"));
}

}  // namespace
}  // namespace pellix
