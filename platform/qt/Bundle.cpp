#include "platform/Bundle.h"

#include <string_view>
#include <system_error>

#include "platform/FileManager.h"

namespace platform::Bundle {

std::optional<std::filesystem::path> executableUrl() {
  static constexpr const char* self = "/proc/self/exe";
  std::error_code error;
  const std::filesystem::path path = std::filesystem::read_symlink(self, error);
  if (error) return {};
  // The kernel marks a running file that was removed. An update has put a new one in its place, or
  // soon will: the name is what counts.
  static constexpr std::string_view mark = " (deleted)";
  const std::string& text = path.native();
  if (text.ends_with(mark) && !std::filesystem::equivalent(path, self, error)) {
    return text.substr(0, text.size() - mark.size());
  }
  return path;
}

std::optional<std::filesystem::path> urlForResource(const std::string& name) {
  const auto executable = executableUrl();
  if (!executable || name.empty()) return {};
  const auto resource = executable->parent_path() / "resources" / name;
  if (!FileManager::fileExists(resource)) return {};
  return resource;
}

}  // namespace platform::Bundle
