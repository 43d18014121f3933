#include <iostream>
#include <memory>
#include <string>

#include "platform/Alert.h"
#include "platform/Application.h"
#include "platform/MainQueue.h"

namespace {

using namespace platform;

/// Prints what happens to an application, and ends it.
class Delegate final : public ApplicationDelegate {
 public:
  void applicationDidFinishLaunching() override {
    std::cout << "launched\n";
    for (const std::string& argument : Application::arguments()) std::cout << argument << '\0';
    std::cout << std::flush;
    MainQueue::asyncAfter(0.1, [] { Application::terminate(); });
    if (Application::arguments().back() == "--alert") {
      std::cout << "response " << runModal({.messageText = "Stay?"}) << '\n';
    }
  }
};

}  // namespace

int main() {
  const auto delegate = std::make_shared<Delegate>();
  Application application;
  application.setDelegate(delegate);
  application.setActivationPolicy(ActivationPolicy::accessory);
  if (Application::arguments().back() == "--early") Application::terminate();
  application.run();
  std::cout << "returned\n";
}
