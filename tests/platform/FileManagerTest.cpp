#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "FullDisk.h"
#include "TemporaryFolder.h"
#include "platform/Error.h"

namespace {

namespace fs = std::filesystem;
using namespace platform::FileManager;
using Names = std::set<std::string>;

unsigned permissionsOf(const fs::path& path) {
  struct stat info = {};
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777u;
}

/// Expects an error that has something to show to the user.
template <typename Operation>
void expectError(Operation operation) {
  try {
    operation();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const platform::Error& error) {
    EXPECT_FALSE(error.domain.empty());
    EXPECT_NE(error.code, 0);
    EXPECT_FALSE(error.description.empty());
  }
}

/// While it lives, the process has no more rights than any user.
class OrdinaryUser {
 public:
  OrdinaryUser() : old(::geteuid()) {
    if (old == 0) {
      EXPECT_EQ(::seteuid(65534), 0);
    }
  }
  ~OrdinaryUser() { EXPECT_EQ(::seteuid(old), 0); }

 private:
  uid_t old;
};

TEST(FileManagerContract, theHomeFolderIsAFolder) {
  const fs::path home = homeDirectoryForCurrentUser();
  EXPECT_TRUE(home.is_absolute()) << home;
  EXPECT_TRUE(fs::is_directory(home)) << home;
}

TEST(FileManagerContract, applicationSupportLiesInTheHomeFolder) {
  const auto folders = applicationSupportDirectories();
  ASSERT_FALSE(folders.empty());
  EXPECT_EQ(folders.front(), homeDirectoryForCurrentUser() / "Library/Application Support");
}

TEST(FileManagerContract, filesAndFoldersExist) {
  const TemporaryFolder folder;
  EXPECT_TRUE(fileExists(folder.path));
  EXPECT_TRUE(fileExists(folder.path / ""));
  EXPECT_TRUE(fileExists(makeFile(folder / "file")));
  EXPECT_FALSE(fileExists(folder / "missing"));
  EXPECT_FALSE(fileExists(folder / "file" / "below"));
  EXPECT_FALSE(fileExists(folder / std::string(5000, 'x')));
  EXPECT_FALSE(fileExists(""));
}

TEST(FileManagerContract, aLinkExistsIfItsTargetDoes) {
  const TemporaryFolder folder;
  makeFile(folder / "file");
  fs::create_symlink(folder / "file", folder / "link");
  fs::create_symlink(folder / "missing", folder / "dangling");
  fs::create_symlink(folder / "circle", folder / "circle");
  EXPECT_TRUE(fileExists(folder / "link"));
  EXPECT_FALSE(fileExists(folder / "dangling"));
  EXPECT_FALSE(fileExists(folder / "circle"));
}

TEST(FileManagerContract, whatCannotBeLookedAtDoesNotExist) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "closed");
  makeFile(folder / "closed" / "file");
  setPosixPermissions(folder / "closed", 0);
  {
    const OrdinaryUser user;
    EXPECT_FALSE(fileExists(folder / "closed" / "file"));
  }
  setPosixPermissions(folder / "closed", 0755);
}

TEST(FileManagerContract, createsAFolderAndThoseAboveIt) {
  const TemporaryFolder folder;
  createDirectoryWithIntermediateDirectories(folder / "a b" / "ü" / "c");
  EXPECT_TRUE(fs::is_directory(folder / "a b" / "ü" / "c"));
  createDirectoryWithIntermediateDirectories(folder / "slash" / "");
  EXPECT_TRUE(fs::is_directory(folder / "slash"));
}

TEST(FileManagerContract, creatingAFolderThatExistsSucceeds) {
  const TemporaryFolder folder;
  makeFile(folder / "kept");
  createDirectoryWithIntermediateDirectories(folder.path);
  createDirectoryWithIntermediateDirectories(folder.path / "");
  fs::create_directory_symlink(folder.path, folder / "link");
  createDirectoryWithIntermediateDirectories(folder / "link");
  EXPECT_EQ(folder.names(), (Names{"kept", "link"}));
}

TEST(FileManagerContract, creatingAFolderFailsIfAFileIsInTheWay) {
  const TemporaryFolder folder;
  makeFile(folder / "file", "kept");
  expectError([&] { createDirectoryWithIntermediateDirectories(folder / "file"); });
  expectError([&] { createDirectoryWithIntermediateDirectories(folder / "file" / ""); });
  expectError([&] { createDirectoryWithIntermediateDirectories(folder / "file" / "below"); });
  EXPECT_EQ(contentOf(folder / "file"), "kept");
}

TEST(FileManagerContract, creatingAFolderFailsWhereThatIsNotAllowed) {
  const TemporaryFolder folder;
  setPosixPermissions(folder.path, 0555);
  const OrdinaryUser user;
  expectError([&] { createDirectoryWithIntermediateDirectories(folder / "a" / "b"); });
}

TEST(FileManagerContract, removesAFile) {
  const TemporaryFolder folder;
  removeItem(makeFile(folder / "file"));
  EXPECT_EQ(folder.names(), Names());
}

TEST(FileManagerContract, removesAFolderWithAllThatIsInIt) {
  const TemporaryFolder folder;
  fs::create_directories(folder / "tree" / "a" / "b");
  makeFile(folder / "tree" / "a" / "file");
  makeFile(folder / "tree" / ".hidden");
  removeItem(folder / "tree");
  EXPECT_EQ(folder.names(), Names());
}

TEST(FileManagerContract, removingNeverFollowsALink) {
  const TemporaryFolder folder;
  fs::create_directories(folder / "kept");
  makeFile(folder / "kept" / "file");
  fs::create_directory_symlink(folder / "kept", folder / "link");
  fs::create_directories(folder / "tree");
  fs::create_directory_symlink(folder / "kept", folder / "tree" / "link");
  removeItem(folder / "link");
  removeItem(folder / "tree");
  EXPECT_EQ(folder.names(), Names{"kept"});
  EXPECT_TRUE(fs::exists(folder / "kept" / "file"));
}

TEST(FileManagerContract, removesALinkThatLeadsNowhere) {
  const TemporaryFolder folder;
  fs::create_symlink(folder / "missing", folder / "dangling");
  removeItem(folder / "dangling");
  EXPECT_EQ(folder.names(), Names());
}

TEST(FileManagerContract, removingWhatIsMissingFails) {
  const TemporaryFolder folder;
  expectError([&] { removeItem(folder / "missing"); });
  makeFile(folder / "file");
  expectError([&] { removeItem(folder / "file" / "below"); });
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileManagerContract, removingFailsWhereThatIsNotAllowed) {
  const TemporaryFolder folder;
  makeFile(folder / "file");
  setPosixPermissions(folder.path, 0555);
  {
    const OrdinaryUser user;
    expectError([&] { removeItem(folder / "file"); });
  }
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileManagerContract, copiesBytesAndPermissions) {
  const TemporaryFolder folder;
  std::string content(3'000'001, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * i >> 7);
  for (const unsigned permissions : {0755u, 0640u, 0600u, 0444u, 0777u}) {
    const TemporaryFolder target;
    fs::remove(folder / "from");
    makeFile(folder / "from", content);
    setPosixPermissions(folder / "from", permissions);
    copyItem(folder / "from", target / "to");
    EXPECT_EQ(contentOf(target / "to"), content);
    EXPECT_EQ(permissionsOf(target / "to"), permissions);
    EXPECT_EQ(target.names(), Names{"to"});
  }
}

TEST(FileManagerContract, copiesAnEmptyFile) {
  const TemporaryFolder folder;
  copyItem(makeFile(folder / "from"), folder / "to");
  EXPECT_EQ(folder.names(), (Names{"from", "to"}));
  EXPECT_EQ(fs::file_size(folder / "to"), 0u);
}

TEST(FileManagerContract, aCopyIsAFileOfItsOwn) {
  const TemporaryFolder folder;
  copyItem(makeFile(folder / "from", "old"), folder / "to");
  makeFile(folder / "from", "new");
  EXPECT_EQ(contentOf(folder / "to"), "old");
}

TEST(FileManagerContract, copyFailsWhenTheTargetExists) {
  const TemporaryFolder folder;
  makeFile(folder / "from", "new");
  makeFile(folder / "file", "old");
  fs::create_directory(folder / "folder");
  fs::create_symlink(folder / "missing", folder / "dangling");
  for (const char* target : {"file", "folder", "dangling"}) {
    expectError([&] { copyItem(folder / "from", folder / target); });
  }
  EXPECT_EQ(contentOf(folder / "file"), "old");
  EXPECT_TRUE(fs::is_empty(folder / "folder"));
  EXPECT_TRUE(fs::is_symlink(folder / "dangling"));
  EXPECT_EQ(folder.names(), (Names{"from", "file", "folder", "dangling"}));
}

TEST(FileManagerContract, copyFailsWithoutASourceOrAFolder) {
  const TemporaryFolder folder;
  expectError([&] { copyItem(folder / "missing", folder / "to"); });
  makeFile(folder / "from");
  expectError([&] { copyItem(folder / "from", folder / "missing" / "to"); });
  expectError([&] { copyItem(folder / "from", folder / "from" / "to"); });
  EXPECT_EQ(folder.names(), Names{"from"});
}

TEST(FileManagerContract, copyFailsWhereThatIsNotAllowed) {
  const TemporaryFolder folder;
  makeFile(folder / "from");
  setPosixPermissions(folder.path, 0555);
  {
    const OrdinaryUser user;
    expectError([&] { copyItem(folder / "from", folder / "to"); });
  }
  EXPECT_EQ(folder.names(), Names{"from"});
}

TEST(FileManagerContract, nobodySeesPartOfACopy) {
  const TemporaryFolder folder;
  const std::string content(4'000'000, 'x');
  makeFile(folder / "from", content);
  std::atomic<bool> isDone = false;
  std::thread copier([&] {
    for (int i = 0; i < 10; ++i) {
      copyItem(folder / "from", folder / "to");
      removeItem(folder / "to");
    }
    isDone = true;
  });
  while (!isDone) {
    std::error_code error;
    const auto size = fs::file_size(folder / "to", error);
    if (!error) {
      EXPECT_EQ(size, content.size());
    }
  }
  copier.join();
}

TEST(FileManagerContract, ofTwoCopiesAtOnceOneFails) {
  const TemporaryFolder folder;
  makeFile(folder / "from", std::string(100'000, 'x'));
  std::atomic<int> failures = 0;
  const auto copy = [&] {
    try {
      copyItem(folder / "from", folder / "to");
    } catch (const platform::Error&) {
      ++failures;
    }
  };
  std::thread other(copy);
  copy();
  other.join();
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(contentOf(folder / "to"), contentOf(folder / "from"));
}

TEST(FileManagerContract, setsPermissions) {
  const TemporaryFolder folder;
  makeFile(folder / "file");
  for (const unsigned permissions : {0755u, 0u, 0644u}) {
    setPosixPermissions(folder / "file", permissions);
    EXPECT_EQ(permissionsOf(folder / "file"), permissions);
  }
}

TEST(FileManagerContract, settingThePermissionsOfWhatIsMissingFails) {
  const TemporaryFolder folder;
  expectError([&] { setPosixPermissions(folder / "missing", 0755); });
}

TEST(FileManagerContract, writesANewFile) {
  const TemporaryFolder folder;
  const std::string text = "{\"site\":\"—…😀\"}";
  writeAtomically(text, folder / "managed.json");
  EXPECT_EQ(contentOf(folder / "managed.json"), text);
  EXPECT_EQ(folder.names(), Names{"managed.json"});
}

TEST(FileManagerContract, replacesAFile) {
  const TemporaryFolder folder;
  makeFile(folder / "file", std::string(10'000, 'x'));
  writeAtomically("short", folder / "file");
  EXPECT_EQ(contentOf(folder / "file"), "short");
  writeAtomically("", folder / "file");
  EXPECT_EQ(contentOf(folder / "file"), "");
  const std::string large(3'000'000, 'y');
  writeAtomically(large, folder / "file");
  EXPECT_EQ(contentOf(folder / "file"), large);
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileManagerContract, whoeverHoldsTheOldFileKeepsIt) {
  const TemporaryFolder folder;
  std::ifstream old(makeFile(folder / "file", "old"));
  writeAtomically("new", folder / "file");
  std::string content;
  old >> content;
  EXPECT_EQ(content, "old");
}

TEST(FileManagerContract, aFileOfAnyNameCanBeWritten) {
  const TemporaryFolder folder;
  for (const std::string& name :
       {std::string("two words.plist"), std::string("\"quoted\" & <b> 100%"), std::string("ü😀"),
        std::string("line\nbreak"), std::string(".hidden"), std::string(251, 'x'),
        std::string(255, 'x')}) {
    writeAtomically(name, folder / name);
    EXPECT_EQ(contentOf(folder / name), name);
    removeItem(folder / name);
    EXPECT_EQ(folder.names(), Names());
  }
  expectError([&] { writeAtomically("", folder / std::string(256, 'x')); });
  EXPECT_EQ(folder.names(), Names());
}

TEST(FileManagerContract, writingWhereThereIsNoFolderFails) {
  const TemporaryFolder folder;
  makeFile(folder / "file", "kept");
  expectError([&] { writeAtomically("x", folder / "missing" / "file"); });
  expectError([&] { writeAtomically("x", folder / "file" / "below"); });
  EXPECT_EQ(folder.names(), Names{"file"});
  EXPECT_EQ(contentOf(folder / "file"), "kept");
}

TEST(FileManagerContract, writingOverAFolderFails) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "folder");
  makeFile(folder / "folder" / "kept");
  expectError([&] { writeAtomically("x", folder / "folder"); });
  EXPECT_EQ(folder.names(), Names{"folder"});
  EXPECT_TRUE(fs::exists(folder / "folder" / "kept"));
}

TEST(FileManagerContract, writingWhereThatIsNotAllowedFails) {
  const TemporaryFolder folder;
  makeFile(folder / "file", "old");
  setPosixPermissions(folder.path, 0555);
  {
    const OrdinaryUser user;
    expectError([&] { writeAtomically("new", folder / "file"); });
  }
  EXPECT_EQ(contentOf(folder / "file"), "old");
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileManagerContract, aWriteThatFailsHalfwayKeepsTheOldFile) {
  const TemporaryFolder folder;
  makeFile(folder / "file", "old");
  {
    const FullDisk disk(100'000);
    expectError([&] { writeAtomically(std::string(1'000'000, 'x'), folder / "file"); });
  }
  EXPECT_EQ(contentOf(folder / "file"), "old");
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileManagerContract, anErrorNamesTheFile) {
  const TemporaryFolder folder;
  try {
    writeAtomically("x", folder / "missing" / "managed.json");
    FAIL();
  } catch (const platform::Error& error) {
    EXPECT_NE(error.description.find("managed.json"), std::string::npos) << error.description;
  }
}

TEST(FileManagerContract, writersAtOnceNeverTearTheFile) {
  const TemporaryFolder folder;
  const std::string as(200'000, 'a');
  const std::string bs(100'000, 'b');
  writeAtomically(as, folder / "file");
  std::atomic<int> running = 2;
  const auto write = [&](const std::string& text) {
    for (int i = 0; i < 40; ++i) writeAtomically(text, folder / "file");
    --running;
  };
  std::thread first([&] { write(as); });
  std::thread second([&] { write(bs); });
  while (running > 0) {
    const std::string seen = contentOf(folder / "file");
    EXPECT_TRUE(seen == as || seen == bs) << seen.size();
  }
  first.join();
  second.join();
  EXPECT_EQ(folder.names(), Names{"file"});
}

}  // namespace
