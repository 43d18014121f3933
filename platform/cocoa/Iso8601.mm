#include "platform/Iso8601.h"

#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

// The formatter divides a fraction by a power of ten, which from 35 digits on is 0: that ends the
// process on Intel Macs. It reads milliseconds, in any script's digits.
NSString* withShortFraction(NSString* text) {
  constexpr NSUInteger enough = 9;
  const NSRange point = [text rangeOfString:@"."];
  if (point.location == NSNotFound) return text;
  const NSUInteger start = NSMaxRange(point);
  NSCharacterSet* digits = [NSCharacterSet decimalDigitCharacterSet];
  const NSRange other = [text rangeOfCharacterFromSet:[digits invertedSet]
                                              options:0
                                                range:NSMakeRange(start, text.length - start)];
  const NSUInteger end = other.location == NSNotFound ? text.length : other.location;
  if (end - start <= enough) return text;
  return [text stringByReplacingCharactersInRange:NSMakeRange(start + enough, end - start - enough)
                                       withString:@""];
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
