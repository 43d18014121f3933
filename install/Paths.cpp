#include "install/Paths.h"

#include "model/FatalError.h"
#include "platform/FileManager.h"

namespace pellix::Paths {

namespace FileManager = platform::FileManager;

const std::filesystem::path& supportDir() {
  static const std::filesystem::path path = [] {
    const auto folders = FileManager::applicationSupportDirectories();
    if (folders.empty()) fatalError("Unexpectedly found nil while unwrapping an Optional value");
    return folders.front() / "VelmorPellix/";
  }();
  return path;
}

std::filesystem::path guardBinary() {
  return supportDir() / "velmor-guard";
}

std::filesystem::path launchAgent() {
  return FileManager::homeDirectoryForCurrentUser() /
         "Library/LaunchAgents/com.velmor.pellix.plist";
}

std::filesystem::path menubarLaunchAgent() {
  return FileManager::homeDirectoryForCurrentUser() /
         "Library/LaunchAgents/com.velmor.pellix.menubar.plist";
}

}  // namespace pellix::Paths
