#include "platform/Bundle.h"

#include <QCoreApplication>

#include "platform/FileManager.h"
#include "platform/qt/Conversions.h"

namespace platform::Bundle {

// The application looks it up once, so that it stays the same when an update replaces the file.
std::optional<std::filesystem::path> executableUrl() {
  const QString path = QCoreApplication::applicationFilePath();
  if (path.isEmpty()) return {};
  return fromQString(path);
}

std::optional<std::filesystem::path> urlForResource(const std::string& name) {
  const auto executable = executableUrl();
  if (!executable || name.empty()) return {};
  const auto resource = executable->parent_path() / "resources" / name;
  if (!FileManager::fileExists(resource)) return {};
  return resource;
}

}  // namespace platform::Bundle
