#include "platform/Task.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "platform/Error.h"
#include "platform/qt/Descriptor.h"
#include "platform/qt/OwnEnvironment.h"

namespace platform {

namespace {

/// What the child gets in place of what the application has.
class ChildSettings {
 public:
  ChildSettings() {
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    // The session bus's library has the application ignore it, and so would the child.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  }
  ~ChildSettings() {
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
  }
  ChildSettings(const ChildSettings&) = delete;
  ChildSettings& operator=(const ChildSettings&) = delete;

  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
};

/// As the system takes them, a null at the end; for as long as `texts` lives.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

/// Captured output is read while the child runs, so that no child waits for its reader. Whom a
/// child passed its output on to is not waited for.
struct Task::Implementation {
  /// Whatever a child prints must not take all memory; what is beyond this is lost.
  static constexpr std::size_t longestOutput = 64U << 20U;

  ~Implementation() {
    if (pid != 0) ::kill(pid, SIGKILL);
    wait();
  }

  void wait() {
    if (pid == 0) return;
    if (reader.isOpen()) readUntilExit();
    while (::waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
    pid = 0;
  }

  void readUntilExit() {
    // None if somebody has reaped the child already; then the end of the output must do.
    const Descriptor child(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    std::array<pollfd, 2> waited{{{reader.get(), POLLIN, 0}, {child.get(), POLLIN, 0}}};
    bool mayComeMore = true;
    while (mayComeMore && waited[1].revents == 0) {
      if (::poll(waited.data(), waited.size(), -1) > 0) mayComeMore = read();
    }
    while (mayComeMore && output.size() < longestOutput && read()) {
    }
  }

  /// Takes what has come; false if there was nothing.
  bool read() {
    std::array<char, 65536> bytes;
    const ssize_t size = ::read(reader.get(), bytes.data(), bytes.size());
    if (size < 0) return errno == EINTR;
    output.append(bytes.data(),
                  std::min(static_cast<std::size_t>(size), longestOutput - output.size()));
    return size > 0;
  }

  std::vector<std::string> arguments;  ///< the program is the first
  bool isCaptured;
  pid_t pid = 0;      ///< of the running process
  Descriptor reader;  ///< of what it prints, if that is captured; never waits
  std::string output;
};

Task::Task(const std::filesystem::path& executableUrl, const std::vector<std::string>& arguments,
           Output output)
    : implementation(std::make_unique<Implementation>()) {
  implementation->arguments = {std::filesystem::absolute(executableUrl).native()};
  implementation->arguments.insert(implementation->arguments.end(), arguments.begin(),
                                   arguments.end());
  implementation->isCaptured = output == Output::captured;
}

/// A process that nobody waited for is killed.
Task::~Task() = default;

void Task::launch() {
  Implementation& task = *implementation;
  const auto check = [&](int error) {
    if (error == 0) return;
    const std::error_code code(error, std::generic_category());
    throw Error(code.category().name(), code.value(),
                "The program “" + task.arguments.front() +
                    "” couldn’t be started: " + code.message() + ".");
  };
  ChildSettings settings;
  Descriptor writer;
  if (task.isCaptured) {
    std::array<int, 2> ends{};
    check(::pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno);
    task.reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    check(::posix_spawn_file_actions_adddup2(&settings.files, ends[1], STDOUT_FILENO));
    check(::posix_spawn_file_actions_addopen(&settings.files, STDERR_FILENO, "/dev/null", O_WRONLY,
                                             0));
  }
  const auto arguments = pointersTo(task.arguments);
  auto variables = OwnEnvironment::forChildren();
  pid_t pid = 0;
  check(::posix_spawn(&pid, arguments.front(), &settings.files, &settings.attributes,
                      arguments.data(), pointersTo(variables).data()));
  task.pid = pid;
}

void Task::waitUntilExit() {
  implementation->wait();
}

std::string Task::readStandardOutputToEnd() {
  return std::exchange(implementation->output, {});
}

}  // namespace platform
