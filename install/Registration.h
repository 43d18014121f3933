#pragma once

#include <filesystem>
#include <string>

namespace pellix::Installer {

/// Unloads the launchd job `label` from the user's session, loads it from `plist` and restarts it,
/// so that new files take effect at once. Blocks for three child processes, one after another.
/// Never fails: whatever goes wrong in one step, the next is tried.
void bootstrap(const std::string& label, const std::filesystem::path& plist);

}  // namespace pellix::Installer
