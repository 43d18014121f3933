#include "platform/Hardware.h"

#include <QSysInfo>

#include "platform/qt/MachineId.h"

namespace platform {

std::optional<std::string> platformUuid() {
  return uuidFromMachineId(QSysInfo::machineUniqueId());
}

}  // namespace platform
