#include "platform/UserDefaults.h"

#include "platform/cocoa/Conversions.h"

namespace platform::UserDefaults {

long long integerForKey(const std::string& key) {
  return [NSUserDefaults.standardUserDefaults integerForKey:nsString(key)];
}

bool boolForKey(const std::string& key) {
  return [NSUserDefaults.standardUserDefaults boolForKey:nsString(key)];
}

void setBool(bool value, const std::string& key) {
  [NSUserDefaults.standardUserDefaults setBool:value forKey:nsString(key)];
}

}  // namespace platform::UserDefaults
