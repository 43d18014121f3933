#include "install/Registration.h"

#include <vector>

#include "platform/Error.h"
#include "platform/Launchd.h"
#include "platform/Task.h"

namespace pellix::Installer {
namespace {

void launchctl(const std::vector<std::string>& arguments) {
  platform::Task task(platform::Launchd::launchctl(), arguments);
  try {
    task.launch();
  } catch (const platform::Error&) {
    // The next launch of the application registers again.
  }
  task.waitUntilExit();
}

}  // namespace

void bootstrap(const std::string& label, const std::filesystem::path& plist) {
  const std::string domain = "gui/" + std::to_string(platform::Launchd::userId());
  const std::string service = domain + "/" + label;
  launchctl({"bootout", service});
  launchctl({"bootstrap", domain, plist});
  launchctl({"kickstart", "-k", service});
}

}  // namespace pellix::Installer
