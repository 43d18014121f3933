#pragma once

#include <filesystem>

namespace platform {

/// Takes macOS's mark of a download from a file, where that can be done. Any thread, never throws.
void dropQuarantine(const std::filesystem::path& path);

}  // namespace platform
