#pragma once

#include <filesystem>
#include <string_view>

/// Where everything is installed, and what launchd calls it. Any thread; nothing is created here.
/// A path that ends in a slash is a folder's.
namespace pellix::Paths {

// launchd finds a job by its label and its file by name: each file is named after its label.
inline constexpr std::string_view serviceLabel = "com.velmor.pellix";
inline constexpr std::string_view menubarLabel = "com.velmor.pellix.menubar";

/// The application's folder in Application Support, with a slash at the end. Looked up once, on
/// first use; the process stops if the user has no Application Support folder.
const std::filesystem::path& supportDir();

/// The installed service binary.
std::filesystem::path guardBinary();

/// The service's launchd property list; looked up anew on every call.
std::filesystem::path launchAgent();

/// The menu-bar application's launchd property list; looked up anew on every call.
std::filesystem::path menubarLaunchAgent();

}  // namespace pellix::Paths
