#include "platform/Json.h"

#include <QJsonDocument>
#include <QJsonObject>

#include "Conversions.h"

namespace platform {

std::optional<std::map<std::string, std::string>> jsonStringMembers(std::string_view bytes) {
  const QJsonDocument document = QJsonDocument::fromJson(
      QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size())));
  if (!document.isObject()) return {};
  const QJsonObject object = document.object();
  std::map<std::string, std::string> members;
  for (auto member = object.begin(); member != object.end(); ++member) {
    if (member.value().isString()) {
      members.insert_or_assign(fromQString(member.key()), fromQString(member.value().toString()));
    }
  }
  return members;
}

}  // namespace platform
