#include "install/Paths.h"

#include "model/FatalError.h"
#include "platform/FileManager.h"

namespace pellix::Paths {

namespace FileManager = platform::FileManager;

namespace {

std::filesystem::path propertyListOf(std::string_view label) {
  const std::string fileName = std::string(label) + ".plist";
  return FileManager::homeDirectoryForCurrentUser() / "Library/LaunchAgents" / fileName;
}

}  // namespace

const std::filesystem::path& supportDir() {
  static const std::filesystem::path path = [] {
    const auto folders = FileManager::applicationSupportDirectories();
    // In the words of a Swift program that finds no value where one must be.
    if (folders.empty()) fatalError("Unexpectedly found nil while unwrapping an Optional value");
    return folders.front() / "VelmorPellix/";
  }();
  return path;
}

std::filesystem::path guardBinary() {
  return supportDir() / "velmor-guard";
}

std::filesystem::path launchAgent() {
  return propertyListOf(serviceLabel);
}

std::filesystem::path menubarLaunchAgent() {
  return propertyListOf(menubarLabel);
}

}  // namespace pellix::Paths
