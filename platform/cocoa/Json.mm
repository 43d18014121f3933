#include "platform/Json.h"

#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

// A text that begins with a byte-order mark would lose it, unless it is spelt as an escape.
std::string withMarksAsEscapes(std::string_view bytes) {
  constexpr std::string_view mark = "\"\xEF\xBB\xBF";
  std::string escaped;
  for (std::size_t at; (at = bytes.find(mark)) != bytes.npos; bytes.remove_prefix(at + mark.size()))
    escaped.append(bytes.substr(0, at)).append("\"\\uFEFF");
  return escaped.append(bytes);
}

}  // namespace

std::optional<std::map<std::string, std::string>> jsonStringMembers(
    std::string_view bytes, std::initializer_list<std::string_view> keys) {
  const std::string json = withMarksAsEscapes(bytes);
  NSData* data = [NSData dataWithBytes:json.data() length:json.size()];
  NSDictionary* object = [NSJSONSerialization JSONObjectWithData:data options:0 error:nil];
  if (![object isKindOfClass:NSDictionary.class]) return std::nullopt;
  std::map<std::string, std::string> members;
  for (const auto key : keys) {
    NSString* value = object[nsString(key)];
    if ([value isKindOfClass:NSString.class]) members.emplace(key, fromNSString(value));
  }
  return members;
}

}  // namespace platform
