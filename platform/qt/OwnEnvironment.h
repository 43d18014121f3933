#pragma once

#include <unistd.h>

#include <QProcessEnvironment>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Environment variables that are set for this program's own libraries, which read them whenever
/// they like. Its children get what the session had set instead.
class OwnEnvironment {
 public:
  /// Before there is another thread.
  static void set(const char* name, const char* value) {
    std::optional<std::string> sessionValue;
    if (const char* const found = std::getenv(name)) sessionValue = found;
    sessionValues.try_emplace(name, sessionValue);
    ::setenv(name, value, 1);
  }

  /// What children get, each as "NAME=value".
  static std::vector<std::string> forChildren() {
    std::vector<std::string> variables;
    for (char** each = environ; *each != nullptr; ++each) {
      const std::string_view variable = *each;
      if (sessionValues.contains(variable.substr(0, variable.find('=')))) continue;
      variables.emplace_back(variable);
    }
    for (const auto& [name, value] : sessionValues) {
      if (value) variables.push_back(name + '=' + *value);
    }
    return variables;
  }

  /// The same, for those that Qt starts.
  static QProcessEnvironment forQtsChildren() {
    // Texts of Qt's would be Unicode; in here whatever else is set keeps its bytes.
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const auto& [name, value] : sessionValues) {
      environment.remove(QString::fromStdString(name));
      if (value) environment.insert(QString::fromStdString(name), QString::fromStdString(*value));
    }
    return environment;
  }

 private:
  inline static std::map<std::string, std::optional<std::string>, std::less<>> sessionValues;
};

}  // namespace platform
