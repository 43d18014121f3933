#include "platform/UserDefaults.h"

#include <QSettings>
#include <QVariant>

#include "platform/qt/Conversions.h"

using namespace Qt::StringLiterals;

namespace platform::UserDefaults {
namespace {

struct Settings : QSettings {
  Settings() : QSettings(u"Velmor"_s, u"Pellix"_s) {}
};

QString stringForKey(const std::string& key) {
  return Settings().value(toQString(key)).toString();
}

}  // namespace

long long integerForKey(const std::string& key) {
  return stringForKey(key).toLongLong();  // 0 if it is anything else
}

bool boolForKey(const std::string& key) {
  const QString text = stringForKey(key).toLower();
  return text == u"true" || text == u"yes" || text.toLongLong() != 0;
}

void setBool(bool value, const std::string& key) {
  Settings settings;
  settings.setValue(toQString(key), value);
  settings.sync();
}

}  // namespace platform::UserDefaults
