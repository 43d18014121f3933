#include "platform/Json.h"

#include <QJsonDocument>
#include <QJsonValue>
#include <new>

#include "platform/qt/Conversions.h"

namespace platform {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// What Qt's parser may take, and what it takes at most for each of these. In bytes.
constexpr std::size_t memoryLimit = 192U << 20U;
constexpr std::size_t arrayOrObjectSize = 224;
constexpr std::size_t nextValueSize = 64;

/// Whether `bytes` hold none of what Qt's parser accepts although it is not JSON: unknown escapes
/// and control characters in strings, and numbers without a digit on either side of the point. Nor
/// more than it has memory for. Anything else that is wrong is left to the parser.
bool isFitForParser(std::string_view bytes) {
  bool isInString = false;
  std::size_t memory = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    const char next = i + 1 < bytes.size() ? bytes[i + 1] : '\0';
    if (c == '"') {
      isInString = !isInString;
    } else if (!isInString) {
      if (c == '.' && !(i > 0 && isDigit(bytes[i - 1]) && isDigit(next))) return false;
      if (c == '[' || c == '{') memory += arrayOrObjectSize;
      if (c == ',') memory += nextValueSize;
      if (memory > memoryLimit) return false;
    } else if (c == '\\') {
      if (std::string_view("\"\\/bfnrtu").find(next) == std::string_view::npos) return false;
      ++i;
    } else if (c >= '\0' && c < ' ') {
      return false;
    }
  }
  // It takes it in small pieces: where there is no more, other threads would go without.
  ::operator delete(::operator new(memory));
  return true;
}

}  // namespace

std::optional<std::map<std::string, std::string>> jsonStringMembers(
    std::string_view bytes, std::initializer_list<std::string_view> keys) try {
  if (!isFitForParser(bytes)) return {};
  QByteArray json = QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size()));
  // Qt drops a byte-order mark at the start of a string unless it is spelt as an escape.
  json.replace("\"\xEF\xBB\xBF", "\"\\ufeff");
  const QJsonDocument document = QJsonDocument::fromJson(json);
  if (!document.isObject()) return {};
  std::map<std::string, std::string> members;
  for (const auto key : keys) {
    const QJsonValue value = document[toQString(key)];
    if (value.isString()) members.emplace(key, fromQString(value.toString()));
  }
  return members;
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace platform
