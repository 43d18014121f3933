#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/Bundle.h"
#include "platform/Hardware.h"
#include "platform/Launchd.h"

namespace {

TEST(BundleContract, theExecutableIsTheRunningFile) {
  const auto executable = platform::Bundle::executableUrl();
  ASSERT_TRUE(executable);
  EXPECT_TRUE(executable->is_absolute());
  EXPECT_EQ(executable->filename(), "contract_tests");
  EXPECT_TRUE(std::filesystem::is_regular_file(*executable));
}

TEST(BundleContract, aResourceThatIsMissingIsNone) {
  EXPECT_EQ(platform::Bundle::urlForResource("no-such-resource"), std::nullopt);
}

TEST(LaunchdContract, theToolIsNamedByAnAbsolutePath) {
  const auto tool = platform::Launchd::launchctl();
  EXPECT_TRUE(tool.is_absolute());
  EXPECT_EQ(tool.filename(), "launchctl");
}

TEST(LaunchdContract, theUserIsTheProcesssRealOne) {
  EXPECT_EQ(platform::Launchd::userId(), ::getuid());
}

TEST(HardwareContract, thePlatformUuidIsAUuidAndStaysTheSame) {
  const auto uuid = platform::platformUuid();
  EXPECT_EQ(platform::platformUuid(), uuid);
  if (uuid) {
    std::string shape = *uuid;
    for (char& c : shape) {
      if (std::string_view("0123456789ABCDEF").find(c) != std::string_view::npos) c = 'X';
    }
    EXPECT_EQ(shape, "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX") << *uuid;
  }
}

}  // namespace
