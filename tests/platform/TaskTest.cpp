#include "platform/Task.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "MainLoop.h"
#include "Shell.h"
#include "TemporaryFolder.h"
#include "platform/Error.h"

namespace {

using platform::Task;

/// While it lives, one of the process's own streams is a file.
class Redirection {
 public:
  Redirection(int redirected, const std::filesystem::path& path, int flags)
      : stream(redirected), old(::dup(redirected)) {
    const int file = ::open(path.c_str(), flags, 0600);
    ::dup2(file, stream);
    ::close(file);
  }
  ~Redirection() {
    ::dup2(old, stream);
    ::close(old);
  }

 private:
  int stream;
  int old;
};

TEST(TaskContract, capturesStandardOutput) {
  EXPECT_EQ(outputOf("printf '{\"device_id\":\"—\"}\\n'"), "{\"device_id\":\"—\"}\n");
  EXPECT_EQ(outputOf(":"), "");
}

TEST(TaskContract, outputIsBytes) {
  EXPECT_EQ(outputOf("printf 'a\\000\\377\\r\\nb'"), std::string("a\0\377\r\nb", 6));
}

TEST(TaskContract, capturedStandardErrorIsNotPartOfTheOutput) {
  EXPECT_EQ(outputOf("echo no >&2; echo yes; echo no >&2"), "yes\n");
}

TEST(TaskContract, outputCountsWhateverTheExitStatus) {
  EXPECT_EQ(outputOf("echo yes; exit 3"), "yes\n");
  EXPECT_EQ(outputOf("echo yes; kill -KILL $$"), "yes\n");
}

TEST(TaskContract, outputThatFillsAPipeIsWhole) {
  EXPECT_EQ(outputOf("head -c 16000 /dev/zero").size(), 16'000u);
}

TEST(TaskContract, argumentsArriveAsTheyAre) {
  EXPECT_EQ(outputOf("printf '[%s]' \"$@\"",
                     {"two words", "\"$HOME\" `x` \\ *", "line\nbreak", "--json", "—😀"}),
            "[two words][\"$HOME\" `x` \\ *][line\nbreak][--json][—😀]");
}

TEST(TaskContract, anExecutableOfAnyNameIsLaunched) {
  const TemporaryFolder folder;
  const auto program = folder / "two words & ü \"quoted\"";
  makeFile(program, "#!/bin/sh\necho \"$1\"\n");
  std::filesystem::permissions(program, std::filesystem::perms(0755));
  Task task(program, {"yes"}, Task::Output::captured);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.readStandardOutputToEnd(), "yes\n");
}

TEST(TaskContract, environmentFolderAndInputAreInherited) {
  ::setenv("PELLIX_TEST", "inherited", 1);
  EXPECT_EQ(outputOf("printf %s \"$PELLIX_TEST\""), "inherited");
  ::unsetenv("PELLIX_TEST");
  EXPECT_EQ(outputOf("pwd -P"), std::filesystem::current_path().native() + "\n");
  const TemporaryFolder folder;
  const Redirection input(STDIN_FILENO, makeFile(folder / "input", "typed"), O_RDONLY);
  EXPECT_EQ(outputOf("cat"), "typed");
}

TEST(TaskContract, inheritedOutputIsTheApplicationsOwn) {
  const TemporaryFolder folder;
  Task task("/bin/sh", {"-c", "echo out; echo err >&2"});
  {
    const Redirection output(STDOUT_FILENO, folder / "out", O_WRONLY | O_CREAT);
    const Redirection error(STDERR_FILENO, folder / "err", O_WRONLY | O_CREAT);
    task.launch();
    task.waitUntilExit();
  }
  EXPECT_EQ(contentOf(folder / "out"), "out\n");
  EXPECT_EQ(contentOf(folder / "err"), "err\n");
  EXPECT_EQ(task.readStandardOutputToEnd(), "");
}

TEST(TaskContract, waitingLastsUntilTheProcessHasExited) {
  const TemporaryFolder folder;
  Task task("/bin/sh", {"-c", "sleep 0.2; echo done > \"$0\"", (folder / "file").native()});
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(contentOf(folder / "file"), "done\n");
  task.waitUntilExit();
}

TEST(TaskContract, waitingWithoutALaunchReturnsAtOnce) {
  Task task("/bin/echo", {"no"}, Task::Output::captured);
  task.waitUntilExit();
  EXPECT_EQ(task.readStandardOutputToEnd(), "");
}

TEST(TaskContract, whatCannotBeStartedThrows) {
  const TemporaryFolder folder;
  makeFile(folder / "plain", "#!/bin/sh\n");
  makeFile(folder / "nonsense", "\x01\x02\x03");
  makeFile(folder / "lost", "#!/nowhere/at/all\n");
  for (const char* name : {"nonsense", "lost"}) {
    std::filesystem::permissions(folder / name, std::filesystem::perms(0755));
  }
  for (const auto& program :
       {folder / "missing", folder / "plain", folder / "nonsense", folder / "lost", folder.path,
        folder / "plain" / "below", std::filesystem::path("sh")}) {
    Task task(program, {}, Task::Output::captured);
    try {
      task.launch();
      ADD_FAILURE() << program;
    } catch (const platform::Error& error) {
      EXPECT_FALSE(error.domain.empty());
      EXPECT_FALSE(error.description.empty());
    }
    task.waitUntilExit();
    EXPECT_EQ(task.readStandardOutputToEnd(), "");
  }
}

// As the application does, from the main loop: what the platform keeps for a while goes with the
// turn of the loop.
TEST(TaskContract, manyTasksOneAfterAnotherLeaveNothingOpen) {
  const auto descriptor = [] {
    const int lowest = ::dup(STDERR_FILENO);
    ::close(lowest);
    return lowest;
  };
  performOnMainLoop([] { outputOf(":"); });
  const int before = descriptor();
  constexpr int count = 50;
  for (int i = 0; i < count; ++i) {
    performOnMainLoop([] { EXPECT_EQ(outputOf("echo yes"), "yes\n"); });
  }
  EXPECT_LT(descriptor(), before + count / 5);
}

}  // namespace
