#pragma once

#include <QProcessEnvironment>

namespace platform {

/// Environment variables that are set for this program's own libraries, which read them whenever
/// they like. Its children get what the session had set instead.
class OwnEnvironment {
 public:
  /// Before there is another thread.
  static void set(const char* name, const char* value) {
    const auto variable = QString::fromLatin1(name);
    names.append(variable);
    ::qputenv(name, value);
  }

  static QProcessEnvironment forChildren() {
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const QString& name : names) {
      environment.remove(name);
      if (session.contains(name)) environment.insert(name, session.value(name));
    }
    return environment;
  }

 private:
  inline static const auto session = QProcessEnvironment::systemEnvironment();
  inline static QStringList names;
};

}  // namespace platform
