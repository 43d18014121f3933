#include "platform/Url.h"

#include <QUrl>

#include "platform/qt/Conversions.h"

namespace platform {

std::optional<Url> Url::withString(const std::string& text) {
  if (!QUrl(toQString(text), QUrl::StrictMode).isValid()) return {};
  return Url(text);
}

}  // namespace platform
