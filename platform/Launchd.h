#pragma once

#include <filesystem>

/// The session's service manager. Any thread; nothing fails.
namespace platform::Launchd {

/// The tool that loads, unloads and restarts jobs. It may be missing.
std::filesystem::path launchctl();

/// The real user ID of this process: its session's domain is gui/ and this number.
unsigned userId();

}  // namespace platform::Launchd
