#include "platform/Launchd.h"

#include <unistd.h>

namespace platform::Launchd {

std::filesystem::path launchctl() {
  return "/bin/launchctl";
}

unsigned userId() {
  return getuid();
}

}  // namespace platform::Launchd
