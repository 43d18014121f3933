#include "platform/Json.h"

#include <QJsonDocument>
#include <QJsonObject>

#include "platform/qt/Conversions.h"

namespace platform {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Whether `bytes` hold none of what Qt's parser accepts although it is not JSON: unknown escapes
/// and control characters in strings, and numbers without a digit on either side of the point.
/// Anything else that is wrong is left to the parser.
bool isFreeOfLooseSyntax(std::string_view bytes) {
  bool isInString = false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    const char next = i + 1 < bytes.size() ? bytes[i + 1] : '\0';
    if (c == '"') {
      isInString = !isInString;
    } else if (!isInString) {
      if (c == '.' && !(i > 0 && isDigit(bytes[i - 1]) && isDigit(next))) return false;
    } else if (c == '\\') {
      if (std::string_view("\"\\/bfnrtu").find(next) == std::string_view::npos) {
        return false;
      }
      ++i;
    } else if (c >= '\0' && c < ' ') {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<std::map<std::string, std::string>> jsonStringMembers(std::string_view bytes) {
  if (!isFreeOfLooseSyntax(bytes)) return {};
  QByteArray json = QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size()));
  // Qt drops a byte-order mark at the start of a string unless it is spelt as an escape.
  json.replace("\"\xEF\xBB\xBF", "\"\\ufeff");
  const QJsonDocument document = QJsonDocument::fromJson(json);
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
