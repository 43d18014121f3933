#include "platform/Hardware.h"

#include <QByteArray>
#include <QFile>

#include "platform/qt/MachineId.h"

using namespace Qt::StringLiterals;

namespace platform {

std::optional<std::string> platformUuid() {
  QFile file(u"/etc/machine-id"_s);
  if (!file.open(QIODevice::ReadOnly)) return {};
  const QByteArray content = file.read(64);  // a well-formed one has less
  return uuidFromMachineId({content.data(), static_cast<std::size_t>(content.size())});
}

}  // namespace platform
