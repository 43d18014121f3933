#include "platform/Url.h"

#include "platform/cocoa/Conversions.h"

namespace platform {

std::optional<Url> Url::withString(const std::string& text) {
  NSURL* url = [NSURL URLWithString:nsString(text)];
  if (url == nil) return std::nullopt;
  return Url(fromNSString(url.absoluteString));
}

}  // namespace platform
