#include <memory>

#include "app/AppDelegate.h"
#include "platform/Application.h"

int main() {
  platform::Application app;
  const auto delegate = std::make_shared<pellix::AppDelegate>();  // the application holds it weakly
  app.setDelegate(delegate);
  app.setActivationPolicy(platform::ActivationPolicy::accessory);
  app.run();
  return 0;
}
