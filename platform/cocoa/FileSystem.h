#pragma once

#include <filesystem>

/// What Foundation does otherwise than is needed here. Any thread; nothing throws.
namespace platform {

/// Takes macOS's mark of a download from a file, where that can be done.
void dropQuarantine(const std::filesystem::path& path);

/// Renames a file unless anything is at `to`, in one step. 0, or an errno: EEXIST, or ENOTSUP where
/// the file system cannot.
int renameExclusively(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace platform
