#include "platform/FileManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFileDevice>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "FullDisk.h"
#include "TemporaryFolder.h"
#include "platform/Error.h"

namespace {

namespace fs = std::filesystem;
using namespace platform::FileManager;
using namespace std::chrono_literals;
using Names = std::set<std::string>;

/// While it lives, $HOME is `value`, or unset.
class Home {
 public:
  explicit Home(const char* value) {
    if (const char* const current = std::getenv("HOME")) old = current;
    value == nullptr ? ::unsetenv("HOME") : ::setenv("HOME", value, 1);
  }
  ~Home() { old ? ::setenv("HOME", old->c_str(), 1) : ::unsetenv("HOME"); }

 private:
  std::optional<std::string> old;
};

void setFilter(std::span<sock_filter> program) {
  const sock_fprog filter = {.len = static_cast<unsigned short>(program.size()),
                             .filter = program.data()};
  ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

/// Makes a system call fail on this thread.
void forbid(unsigned call, unsigned error) {
  std::array<sock_filter, 4> program = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  setFilter(program);
}

/// Makes links and files without a name fail on this thread, as on file systems that have neither.
void forbidLinks() {
  static_assert(sizeof(void*) == 8);
  constexpr unsigned thirdArgument = offsetof(seccomp_data, args) + 2 * 8;  // its low half
  constexpr unsigned unnamed = O_TMPFILE & ~O_DIRECTORY;
  std::array<sock_filter, 9> program = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_link, 5, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 4),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, thirdArgument),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, unnamed, 0, 2),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  setFilter(program);
  ASSERT_EQ(::open("/", O_TMPFILE | O_WRONLY, 0600), -1);
  ASSERT_EQ(errno, EOPNOTSUPP);
  ASSERT_EQ(::link("/etc/hostname", "/no/such/place"), -1);
  ASSERT_EQ(errno, EPERM);
}

/// Runs `operation` again and again in a child process, which is killed somewhere in it.
template <typename Operation>
void killDuring(std::chrono::microseconds time, Operation operation) {
  const pid_t child = ::fork();
  if (child == 0) {
    while (true) operation();
  }
  std::this_thread::sleep_for(time);
  ::kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST(FileManager, theHomeFolderIsTheEnvironments) {
  const Home home("/some/where");
  EXPECT_EQ(homeDirectoryForCurrentUser(), "/some/where");
  EXPECT_EQ(applicationSupportDirectories(),
            std::vector<fs::path>{"/some/where/Library/Application Support"});
}

TEST(FileManager, withoutOneThereTheHomeFolderIsTheAccounts) {
  for (const char* const value : {static_cast<const char*>(nullptr), ""}) {
    const Home home(value);
    EXPECT_EQ(homeDirectoryForCurrentUser(), ::getpwuid(::getuid())->pw_dir);
  }
}

TEST(FileManager, theHomeFolderIsLookedUpAnew) {
  const Home first("/first");
  EXPECT_EQ(homeDirectoryForCurrentUser(), "/first");
  const Home second("/second");
  EXPECT_EQ(homeDirectoryForCurrentUser(), "/second");
}

TEST(FileManager, aLinkToTheBundledFileIsCopiedAsTheFile) {
  const TemporaryFolder folder;
  makeFile(folder / "file", "bytes");
  fs::create_symlink(folder / "file", folder / "link");
  copyItem(folder / "link", folder / "to");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "to")));
  EXPECT_EQ(contentOf(folder / "to"), "bytes");
}

TEST(FileManager, onlyAFileCanBeCopied) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  for (const fs::path& from : {folder / "folder", folder / "pipe", fs::path("/dev/zero")}) {
    EXPECT_THROW(copyItem(from, folder / "to"), platform::Error) << from;
  }
  EXPECT_EQ(folder.names(), (Names{"folder", "pipe"}));
}

TEST(FileManager, aFileThatCannotBeReadIsNotCopied) {
  const TemporaryFolder folder;
  makeFile(folder / "from", "bytes");
  std::thread([&] {
    for (const unsigned call : {SYS_read, SYS_readv, SYS_sendfile, SYS_copy_file_range}) {
      forbid(call, EIO);
    }
    EXPECT_THROW(copyItem(folder / "from", folder / "to"), platform::Error);
  }).join();
  EXPECT_EQ(folder.names(), Names{"from"});
}

TEST(FileManager, aCopyTakesNoMoreMemoryForALargeFile) {
  const auto mostMemory = [] {
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;  // KiB
  };
  const TemporaryFolder folder;
  makeFile(folder / "small", "bytes");
  copyItem(folder / "small", folder / "copy");
  makeFile(folder / "from");
  fs::resize_file(folder / "from", 256U << 20U);
  const long before = mostMemory();
  copyItem(folder / "from", folder / "to");
  EXPECT_EQ(fs::file_size(folder / "to"), 256U << 20U);
  EXPECT_LT(mostMemory() - before, 64 << 10);
}

TEST(FileManager, permissionsOfACopyDoNotDependOnTheUmask) {
  const TemporaryFolder folder;
  makeFile(folder / "from");
  setPosixPermissions(folder / "from", 0757);
  const mode_t old = ::umask(077);
  copyItem(folder / "from", folder / "to");
  ::umask(old);
  EXPECT_EQ(fs::status(folder / "to").permissions(), fs::perms(0757));
}

TEST(FileManager, aWriterThatIsKilledLeavesNoTornFileAndAtMostOneMore) {
  const TemporaryFolder folder;
  const std::string as(300'000, 'a');
  const std::string bs(200'000, 'b');
  writeAtomically(as, folder / "managed.json");
  std::size_t before = 1;
  for (int i = 1; i <= 25; ++i) {
    killDuring(i * 700us, [&] {
      writeAtomically(as, folder / "managed.json");
      writeAtomically(bs, folder / "managed.json");
    });
    const std::string left = contentOf(folder / "managed.json");
    EXPECT_TRUE(left == as || left == bs) << left.size();
    EXPECT_LE(folder.names().size(), before + 1);
    before = folder.names().size();
  }
  writeAtomically("new", folder / "managed.json");
  EXPECT_EQ(contentOf(folder / "managed.json"), "new");
  EXPECT_EQ(folder.names().size(), before);
}

TEST(FileManager, aCopierThatIsKilledLeavesNoPartOfTheFileAndAtMostOneMore) {
  const TemporaryFolder folder;
  const std::string content(3'000'000, 'x');
  makeFile(folder / "from", content);
  std::size_t before = 1;
  for (int i = 1; i <= 25; ++i) {
    killDuring(i * 700us, [&] {
      copyItem(folder / "from", folder / "to");
      removeItem(folder / "to");
    });
    if (fs::exists(folder / "to")) {
      EXPECT_EQ(fs::file_size(folder / "to"), content.size());
      removeItem(folder / "to");
    }
    EXPECT_LE(folder.names().size(), before + 1);
    before = folder.names().size();
  }
}

TEST(FileManager, needsNoLinks) {
  std::thread([] {
    forbidLinks();
    const TemporaryFolder folder;
    makeFile(folder / "from", "bytes");
    setPosixPermissions(folder / "from", 0755);
    copyItem(folder / "from", folder / "to");
    EXPECT_EQ(contentOf(folder / "to"), "bytes");
    EXPECT_EQ(fs::status(folder / "to").permissions(), fs::perms(0755));
    makeFile(folder / "from", "other");
    EXPECT_THROW(copyItem(folder / "from", folder / "to"), platform::Error);
    EXPECT_THROW(copyItem(folder / "from", folder / "missing" / "to"), platform::Error);
    EXPECT_EQ(contentOf(folder / "to"), "bytes");
    for (const char* text : {"new", "newer"}) {
      writeAtomically(text, folder / "managed.json");
      EXPECT_EQ(contentOf(folder / "managed.json"), text);
    }
    EXPECT_EQ(folder.names(), (Names{"from", "to", "managed.json"}));
  }).join();
}

/// A file that must not be written to, in a folder that anybody may change, seen as an ordinary
/// user.
class ProtectedFile : public testing::TestWithParam<const char*> {
 protected:
  ProtectedFile() {
    makeFile(file, "old");
    setPosixPermissions(folder.path, 0777);
    if (user == 0 && GetParam() == ofTheUser) {
      EXPECT_EQ(::chown(file.c_str(), 65534, 65534), 0);
    }
    setPosixPermissions(file, 0444);
    // Root may write to everything, and Qt asks for the rights of the real user.
    if (user == 0) {
      EXPECT_EQ(::setresuid(65534, 65534, 0), 0);
    }
  }
  ~ProtectedFile() override {
    if (user == 0) {
      EXPECT_EQ(::setresuid(0, 0, 0), 0);
    }
  }

 public:
  static constexpr const char* ofTheUser = "ofTheUser";

 protected:
  const TemporaryFolder folder;
  const fs::path file = folder / "file";
  const uid_t user = ::getuid();
};

INSTANTIATE_TEST_SUITE_P(FileManager, ProtectedFile,
                         testing::Values(ProtectedFile::ofTheUser, "ofSomebodyElse"),
                         [](const auto& file) { return file.param; });

TEST_P(ProtectedFile, isReplaced) {
  EXPECT_NO_THROW(writeAtomically("new", file));
  EXPECT_EQ(contentOf(file), "new");
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST_P(ProtectedFile, staysUntilTheNewOneIsWhole) {
  {
    const FullDisk disk(100'000);
    EXPECT_THROW(writeAtomically(std::string(1'000'000, 'x'), file), platform::Error);
  }
  EXPECT_EQ(contentOf(file), "old");
  EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileManager, aNewFileCanBeReadByAnybodyAndAnOlderOneByWhomItCouldBe) {
  const TemporaryFolder folder;
  writeAtomically("new", folder / "file");
  EXPECT_EQ(fs::status(folder / "file").permissions(), fs::perms(0644));
  setPosixPermissions(folder / "file", 0600);
  writeAtomically("newer", folder / "file");
  EXPECT_EQ(fs::status(folder / "file").permissions(), fs::perms(0600));
}

// On the network that is when some file systems say that there is no room.
TEST(FileManager, aFileThatFailsToBeClosedKeepsTheOldOne) {
  const TemporaryFolder folder;
  makeFile(folder / "from", "bytes");
  makeFile(folder / "file", "old");
  std::thread([&] {
    forbid(SYS_close, EDQUOT);
    EXPECT_THROW(writeAtomically("new", folder / "file"), platform::Error);
    EXPECT_THROW(copyItem(folder / "from", folder / "to"), platform::Error);
  }).join();
  EXPECT_EQ(contentOf(folder / "file"), "old");
  EXPECT_EQ(folder.names(), (Names{"from", "file"}));
}

TEST(FileManager, theErrorIsTheSystems) {
  const TemporaryFolder folder;
  try {
    writeAtomically("x", folder / "missing" / "managed.json");
    FAIL();
  } catch (const platform::Error& error) {
    EXPECT_EQ(error.domain, "QFileDevice");
    EXPECT_EQ(error.code, QFileDevice::OpenError);
    EXPECT_EQ(error.description, "The file “" + (folder / "missing" / "managed.json").native() +
                                     "” couldn’t be written: No such file or directory.");
  }
}

TEST(FileManager, aCopyThatFailsHalfwayLeavesNothing) {
  const TemporaryFolder folder;
  makeFile(folder / "from", std::string(1'000'000, 'x'));
  {
    const FullDisk disk(100'000);
    EXPECT_THROW(copyItem(folder / "from", folder / "to"), platform::Error);
  }
  EXPECT_EQ(folder.names(), Names{"from"});
}

}  // namespace
