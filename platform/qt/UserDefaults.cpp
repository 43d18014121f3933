#include "platform/UserDefaults.h"

#include <QSettings>
#include <QVariant>
#include <charconv>

#include "platform/qt/Conversions.h"

namespace platform::UserDefaults {
namespace {

struct Settings : QSettings {
  Settings() : QSettings(QStringLiteral("Velmor"), QStringLiteral("Pellix")) {}
};

QString stringForKey(const std::string& key) {
  return Settings().value(toQString(key)).toString();
}

/// The whole text as a decimal number, or 0.
long long integerFrom(const std::string& text) {
  long long value = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  return result.ec == std::errc() && result.ptr == end ? value : 0;
}

}  // namespace

long long integerForKey(const std::string& key) {
  return integerFrom(fromQString(stringForKey(key)));
}

bool boolForKey(const std::string& key) {
  const QString text = stringForKey(key).toLower();
  return text == u"true" || text == u"yes" || integerFrom(fromQString(text)) != 0;
}

void setBool(bool value, const std::string& key) {
  Settings settings;
  settings.setValue(toQString(key), value);
  settings.sync();
}

}  // namespace platform::UserDefaults
