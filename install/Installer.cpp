#include "install/Installer.h"

#include <string>

#include "install/LaunchAgents.h"
#include "install/Paths.h"
#include "install/Registration.h"
#include "platform/Bundle.h"
#include "platform/Error.h"
#include "platform/FileManager.h"

namespace pellix::Installer {
namespace {

namespace FileManager = platform::FileManager;

void installGuard() {
  const auto guard = Paths::guardBinary();
  const auto resource = platform::Bundle::urlForResource(guard.filename());
  if (resource && FileManager::fileExists(*resource)) {
    if (FileManager::fileExists(guard)) {
      try {
        FileManager::removeItem(guard);
      } catch (const platform::Error&) {
        // The copy reports what is in its way.
      }
    }
    FileManager::copyItem(*resource, guard);
    FileManager::setPosixPermissions(guard, 0755);
  } else if (!FileManager::fileExists(guard)) {
    throw platform::Error("VelmorPellix", 1,
                          guard.filename().string() + " binary missing from the app bundle.");
  }
}

}  // namespace

void ensureInstalled() {
  FileManager::createDirectoryWithIntermediateDirectories(Paths::supportDir());
  FileManager::writeAtomically(R"({"site":")" VELMOR_SITE_URL R"("})",
                               Paths::supportDir() / "managed.json");
  installGuard();
  writeServiceLaunchAgent();
  writeMenubarLaunchAgent();
  // launchd loads the menu-bar agent at the next login: here its program is running already.
  bootstrap(std::string(Paths::serviceLabel), Paths::launchAgent());
}

}  // namespace pellix::Installer
