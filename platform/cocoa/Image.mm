#include "platform/Image.h"

#include "platform/cocoa/Conversions.h"

namespace platform {

std::optional<Image> Image::withSystemSymbolName(const std::string& name,
                                                 const std::string& accessibilityDescription) {
  NSImage* image = [NSImage imageWithSystemSymbolName:nsString(name)
                             accessibilityDescription:nsString(accessibilityDescription)];
  if (image == nil) return std::nullopt;
  return Image{.systemSymbolName = name, .accessibilityDescription = accessibilityDescription};
}

}  // namespace platform
