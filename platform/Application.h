#pragma once

#include <memory>
#include <string>
#include <vector>

namespace platform {

enum class ActivationPolicy { regular = 0, accessory = 1, prohibited = 2 };

class ApplicationDelegate {
 public:
  /// The application is ready for user interface. Main thread, once.
  virtual void applicationDidFinishLaunching() = 0;

 protected:
  ~ApplicationDelegate() = default;
};

/// The process's one application object; it must outlive everything else of this namespace except
/// pure values. Main thread only.
class Application {
 public:
  Application();
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// The delegate is held weakly; its owner keeps it alive.
  void setDelegate(std::weak_ptr<ApplicationDelegate> delegate);
  void setActivationPolicy(ActivationPolicy policy);

  /// Runs the event loop, telling the delegate first. May end the process instead of returning.
  void run();

  /// Brings the application's windows to the front and gives them the keyboard.
  static void activateIgnoringOtherApps();
  /// Ends the event loop normally. May end the process at once.
  static void terminate();
  /// The process's arguments, the program's own path first.
  static std::vector<std::string> arguments();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation;
};

}  // namespace platform
