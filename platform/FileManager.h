#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

/// The default file manager. Any thread, synchronous. What can fail throws `platform::Error` with
/// the platform's own domain, code and description; a path that ends in a slash names a folder.
namespace platform::FileManager {

/// The current user's home folder, looked up anew on every call.
std::filesystem::path homeDirectoryForCurrentUser();

/// The current user's Application Support folders, best first; empty if there is none.
std::vector<std::filesystem::path> applicationSupportDirectories();

/// Whether anything exists there, links followed. Does not throw: what cannot be looked at does not
/// exist.
bool fileExists(const std::filesystem::path& path);

/// Creates the folder and those above it; a folder that exists already is a success.
void createDirectoryWithIntermediateDirectories(const std::filesystem::path& path);

/// Removes a file, or a folder with all that is in it.
void removeItem(const std::filesystem::path& path);

/// Copies bytes and permissions of a file. Fails if anything exists at `to`. Whoever looks at `to`
/// sees no file or the whole file. A mark that it was downloaded is not copied, where the platform
/// knows one and can leave it out.
void copyItem(const std::filesystem::path& from, const std::filesystem::path& to);

/// Sets the permission bits (such as 0755).
void setPosixPermissions(const std::filesystem::path& path, unsigned permissions);

/// Writes `text` (UTF-8) whole: whoever looks at `path` sees the old file or the new one. The
/// folder must exist.
void writeAtomically(std::string_view text, const std::filesystem::path& path);

}  // namespace platform::FileManager
