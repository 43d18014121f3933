#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "Shell.h"
#include "TemporaryFolder.h"
#include "platform/Bundle.h"
#include "platform/Hardware.h"
#include "platform/qt/MachineId.h"

namespace {

namespace fs = std::filesystem;
using platform::uuidFromMachineId;

struct Bundle {
  std::string executable, resource, launchctl;
};

/// What the probe prints, started as `program`; `change` is what it does to its file meanwhile.
Bundle probe(const fs::path& program, const std::string& change = "") {
  std::istringstream output(outputOf("'" + program.native() + "' " + change));
  Bundle bundle;
  std::getline(output, bundle.executable);
  std::getline(output, bundle.resource);
  std::getline(output, bundle.launchctl);
  return bundle;
}

TEST(Bundle, aFolderThatWasMovedIsAWholeBundle) {
  const TemporaryFolder folder;
  const fs::path program = folder / "two words";
  fs::copy_file(BUNDLE_PROBE, program);
  const Bundle bare = probe(program);
  EXPECT_EQ(bare.executable, program);
  EXPECT_EQ(bare.resource, "none");
  EXPECT_EQ(bare.launchctl, "/bin/launchctl");

  fs::create_directory(folder / "resources");
  makeFile(folder / "resources" / "velmor-guard");
  makeFile(folder / "launchctl");
  const Bundle complete = probe(program);
  EXPECT_EQ(complete.resource, folder / "resources" / "velmor-guard");
  EXPECT_EQ(complete.launchctl, folder / "launchctl");
}

TEST(Bundle, aProgramStartedThroughALinkIsTheFileItself) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "bin");
  fs::copy_file(BUNDLE_PROBE, folder / "bin" / "probe");
  fs::create_symlink(folder / "bin" / "probe", folder / "link");
  EXPECT_EQ(probe(folder / "link").executable, folder / "bin" / "probe");
}

TEST(Bundle, aProgramThatWasReplacedWhileItRunsKeepsItsName) {
  const TemporaryFolder folder;
  const fs::path program = folder / "probe";
  for (const char* change : {"remove", "replace"}) {
    fs::remove(program);
    fs::copy_file(BUNDLE_PROBE, program);
    EXPECT_EQ(probe(program, change).executable, program) << change;
  }
}

TEST(Bundle, aNameThatEndsLikeTheMarkOfARemovedFileIsAName) {
  const TemporaryFolder folder;
  const fs::path program = folder / "probe (deleted)";
  fs::copy_file(BUNDLE_PROBE, program);
  EXPECT_EQ(probe(program).executable, program);
}

TEST(Bundle, aResourceWithoutANameIsNone) {
  EXPECT_EQ(platform::Bundle::urlForResource(""), std::nullopt);
}

TEST(MachineId, isGroupedAndUpperCase) {
  const auto expected = "3D1219C7-C4C5-404A-AA1F-6D2A48ADFDA4";
  EXPECT_EQ(uuidFromMachineId("3d1219c7c4c5404aaa1f6d2a48adfda4"), expected);
  EXPECT_EQ(uuidFromMachineId("3D1219C7C4C5404AAA1F6D2A48ADFDA4"), expected);
}

TEST(MachineId, thatIsMalformedIsNone) {
  for (const char* content :
       {"", "uninitialized\n", "3d1219c7c4c5404aaa1f6d2a48adfda\n",
        "3d1219c7c4c5404aaa1f6d2a48adfd", "3d1219c7c4c5404aaa1f6d2a48adfda4a",
        "3d1219c7c4c5404aaa1f6d2a48adfda4\n", " 3d1219c7c4c5404aaa1f6d2a48adfda",
        "3d1219c7-c4c5-404a-aa1f-6d2a48ad", "3d1219c7c4c5404aaa1f6d2a48adfdag",
        "3d1219c7c4c5404aaa1f6d2a48adfd\xc3\xa4", "00000000000000000000000000000000"}) {
    EXPECT_EQ(uuidFromMachineId(content), std::nullopt) << content;
  }
}

TEST(MachineId, isThePlatformUuid) {
  std::string id = contentOf("/etc/machine-id");
  if (id.ends_with('\n')) id.pop_back();
  EXPECT_EQ(platform::platformUuid(), uuidFromMachineId(QByteArray::fromStdString(id)));
}

}  // namespace
