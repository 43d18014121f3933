#include "platform/Task.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "platform/Error.h"
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

/// Captured output goes to a file in memory: it has room for all, needs nobody to read it
/// meanwhile, and its reader does not wait for whom the child passed it on to.
struct Task::Implementation {
  ~Implementation() {
    if (pid != 0) ::kill(pid, SIGKILL);
    wait();
    if (output != -1) ::close(output);
  }

  void wait() {
    if (pid == 0) return;
    while (::waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
    pid = 0;
  }

  std::vector<std::string> arguments;  ///< the program is the first
  bool isCaptured;
  pid_t pid = 0;  ///< of the running process
  int output = -1;
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
  if (task.isCaptured) {
    task.output = ::memfd_create("output", MFD_CLOEXEC);
    if (task.output == -1) check(errno);
    check(::posix_spawn_file_actions_adddup2(&settings.files, task.output, STDOUT_FILENO));
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
  const int output = implementation->output;
  if (output == -1) return {};
  std::string content(static_cast<std::size_t>(::lseek(output, 0, SEEK_END)), '\0');
  const ssize_t size = ::pread(output, content.data(), content.size(), 0);
  content.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return content;
}

}  // namespace platform
