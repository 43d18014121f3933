#pragma once

#include <QString>
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace platform {

/// Bytes that are not UTF-8 become U+FFFD.
inline QString toQString(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

/// In UTF-8; a surrogate without its partner becomes U+FFFD or "?".
inline std::string fromQString(const QString& text) {
  return text.toStdString();
}

/// Rounded up, so that nothing timed by it comes early.
inline int toMilliseconds(double seconds) {
  return static_cast<int>(
      std::clamp(std::ceil(seconds * 1000), 0.0, double{std::numeric_limits<int>::max()}));
}

}  // namespace platform
