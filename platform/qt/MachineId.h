#pragma once

#include <QByteArray>
#include <QUuid>
#include <optional>
#include <string>

namespace platform {

/// The platform UUID that a machine ID stands for: upper-case, grouped 8-4-4-4-12. None unless it
/// is exactly 32 hexadecimal digits, not all zero.
inline std::optional<std::string> uuidFromMachineId(const QByteArray& id) {
  const QByteArray bytes = QByteArray::fromHex(id);
  const QUuid uuid = QUuid::fromRfc4122(bytes);
  if (bytes.toHex() != id.toLower() || uuid.isNull()) return {};
  return uuid.toString(QUuid::WithoutBraces).toUpper().toStdString();
}

}  // namespace platform
