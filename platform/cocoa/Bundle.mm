#include "platform/Bundle.h"

#include "platform/cocoa/Conversions.h"

namespace platform::Bundle {
namespace {

std::optional<std::filesystem::path> pathOrNone(NSURL* url) {
  if (url == nil) return std::nullopt;
  return fromNSUrl(url);
}

}  // namespace

std::optional<std::filesystem::path> executableUrl() {
  return pathOrNone(NSBundle.mainBundle.executableURL);
}

std::optional<std::filesystem::path> urlForResource(const std::string& name) {
  return pathOrNone([NSBundle.mainBundle URLForResource:nsString(name) withExtension:nil]);
}

}  // namespace platform::Bundle
