#include "platform/Hardware.h"

#include <fstream>

#include "platform/qt/MachineId.h"

namespace platform {

std::optional<std::string> platformUuid() {
  std::ifstream file("/etc/machine-id", std::ios::binary);
  std::string content(64, '\0');  // more than a well-formed one has
  file.read(content.data(), static_cast<std::streamsize>(content.size()));
  content.resize(static_cast<std::size_t>(file.gcount()));
  return uuidFromMachineId(content);
}

}  // namespace platform
