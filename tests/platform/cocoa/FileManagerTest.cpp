#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "TemporaryFolder.h"

namespace {

using namespace platform::FileManager;

// What a browser gives to a download.
constexpr auto quarantine = "com.apple.quarantine";

bool hasAttribute(const std::filesystem::path& path, const char* name) {
  return ::getxattr(path.c_str(), name, nullptr, 0, 0, XATTR_NOFOLLOW) >= 0;
}

void addAttribute(const std::filesystem::path& path, const char* name) {
  const std::string value = "0081;00000000;Safari;";
  ASSERT_EQ(::setxattr(path.c_str(), name, value.data(), value.size(), 0, XATTR_NOFOLLOW), 0);
}

TEST(CocoaFileManager, aCopyDoesNotBearTheMarkOfADownload) {
  const TemporaryFolder folder;
  addAttribute(makeFile(folder / "from", "content"), quarantine);
  copyItem(folder / "from", folder / "to");
  EXPECT_FALSE(hasAttribute(folder / "to", quarantine));
  EXPECT_TRUE(hasAttribute(folder / "from", quarantine));
  EXPECT_EQ(contentOf(folder / "to"), "content");
}

TEST(CocoaFileManager, aCopyOfAFileWithoutTheMarkGetsNone) {
  const TemporaryFolder folder;
  copyItem(makeFile(folder / "from"), folder / "to");
  EXPECT_FALSE(hasAttribute(folder / "to", quarantine));
}

TEST(CocoaFileManager, theMarkIsTheOnlyAttributeThatACopyLacks) {
  const TemporaryFolder folder;
  addAttribute(makeFile(folder / "from"), "com.velmor.pellix.test");
  copyItem(folder / "from", folder / "to");
  EXPECT_TRUE(hasAttribute(folder / "to", "com.velmor.pellix.test"));
}

// It may stay there: whoever cannot write a file cannot change its attributes either.
TEST(CocoaFileManager, aReadOnlyFileIsCopiedWhateverBecomesOfItsMark) {
  const TemporaryFolder folder;
  addAttribute(makeFile(folder / "from", "content"), quarantine);
  setPosixPermissions(folder / "from", 0444);
  copyItem(folder / "from", folder / "to");
  EXPECT_EQ(contentOf(folder / "to"), "content");
  struct stat info = {};
  EXPECT_EQ(::stat((folder / "to").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777u, 0444u);
}

}  // namespace
