#include "Defaults.h"

#include <cstdlib>
#include <filesystem>

void removeDefaults() {
  std::filesystem::remove_all(std::filesystem::path(std::getenv("XDG_CONFIG_HOME")) / "Velmor");
}
