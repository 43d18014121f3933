#include "platform/Iso8601.h"

#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

// The formatter divides a fraction by a power of ten, which from 35 digits on is 0: that ends the
// process on Intel Macs. It reads milliseconds, in any script's digits.
NSString* withShortFraction(NSString* text) {
  const NSRange point = [text rangeOfString:@"." options:NSLiteralSearch];
  if (point.location == NSNotFound) return text;
  NSRegularExpression* longNumber =
      [NSRegularExpression regularExpressionWithPattern:@"(\\d{9})\\d+" options:0 error:nil];
  const NSRange rest = NSMakeRange(point.location, text.length - point.location);
  return [longNumber stringByReplacingMatchesInString:text options:0 range:rest withTemplate:@"$1"];
}

}  // namespace

std::optional<Date> dateFromIso8601(const std::string& text, Iso8601Format format) {
  NSISO8601DateFormatter* formatter = [[NSISO8601DateFormatter alloc] init];
  if (format == Iso8601Format::internetDateTimeWithFractionalSeconds)
    formatter.formatOptions =
        NSISO8601DateFormatWithInternetDateTime | NSISO8601DateFormatWithFractionalSeconds;
  NSDate* date = [formatter dateFromString:withShortFraction(nsString(text))];
  if (date == nil) return std::nullopt;
  return Date(Date::duration(date.timeIntervalSince1970));
}

}  // namespace platform
