#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace platform {

/// One child process. It inherits the environment, the working folder and the standard input.
/// One thread at a time.
class Task {
 public:
  enum class Output {
    inherited,  ///< standard output and standard error are the application's own
    captured,   ///< standard output is kept to be read afterwards, standard error for nobody
  };

  /// `arguments` leaves out the executable's own name. None is empty; a platform may decompose the
  /// accents in them.
  Task(const std::filesystem::path& executableUrl, const std::vector<std::string>& arguments,
       Output output = Output::inherited);
  ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  /// Starts the process, once. Throws `platform::Error` if it cannot be started.
  void launch();

  /// Blocks until the process has exited, without limit. Returns at once if it was not launched.
  void waitUntilExit();

  /// What the process wrote to its standard output. Only after the process has exited; empty if it
  /// was not launched or its output was not captured. Output longer than a pipe always holds
  /// (16 KiB) is not to be relied on: the platform may let such a child wait for ever.
  std::string readStandardOutputToEnd();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation;
};

}  // namespace platform
