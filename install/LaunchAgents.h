#pragma once

#include <cstdint>

/// The property lists from which launchd starts the service and, at login, the menu-bar
/// application. Both are written whole on every call. Any thread. The folder Library/LaunchAgents
/// must exist.
namespace pellix::Installer {

/// The port on which the service listens: its property list says so.
inline constexpr std::int64_t servicePort = 8787;

/// Creates the log folder and writes the service's property list. Throws `platform::Error`.
void writeServiceLaunchAgent();

/// Writes the menu-bar application's property list, or nothing if the path of the running
/// executable is not known. Throws `platform::Error`.
void writeMenubarLaunchAgent();

}  // namespace pellix::Installer
