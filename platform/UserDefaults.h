#pragma once

#include <string>

/// The standard user defaults. Main thread. Nothing fails: what cannot be read is missing, and what
/// cannot be written is lost.
namespace platform::UserDefaults {

/// The integer under `key`, or 0 if it is missing or nothing like a number. What is almost one is
/// the platform's choice.
long long integerForKey(const std::string& key);

/// The Boolean under `key`, or false if it is missing or nothing like a Boolean.
bool boolForKey(const std::string& key);

/// Stores `value`; it is on disk soon after.
void setBool(bool value, const std::string& key);

}  // namespace platform::UserDefaults
