#include "platform/Launchd.h"

#include <unistd.h>

#include "platform/Bundle.h"
#include "platform/FileManager.h"

namespace platform::Launchd {

std::filesystem::path launchctl() {
  if (const auto executable = Bundle::executableUrl()) {
    auto beside = executable->parent_path() / "launchctl";
    if (FileManager::fileExists(beside)) return beside;
  }
  return "/bin/launchctl";
}

unsigned userId() {
  return ::getuid();
}

}  // namespace platform::Launchd
