#include "platform/Json.h"

#include "platform/cocoa/Conversions.h"

namespace platform {

std::optional<std::map<std::string, std::string>> jsonStringMembers(std::string_view bytes) {
  NSData* data = [NSData dataWithBytes:bytes.data() length:bytes.size()];
  NSDictionary* object = [NSJSONSerialization JSONObjectWithData:data options:0 error:nil];
  if (![object isKindOfClass:NSDictionary.class]) return std::nullopt;
  std::map<std::string, std::string> members;
  for (NSString* key in object) {
    NSString* value = object[key];
    if ([value isKindOfClass:NSString.class]) members[fromNSString(key)] = fromNSString(value);
  }
  return members;
}

}  // namespace platform
