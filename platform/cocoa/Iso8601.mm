#include "platform/Iso8601.h"

#include "platform/cocoa/Conversions.h"

namespace platform {

std::optional<Date> dateFromIso8601(const std::string& text, Iso8601Format format) {
  NSISO8601DateFormatter* formatter = [[NSISO8601DateFormatter alloc] init];
  if (format == Iso8601Format::internetDateTimeWithFractionalSeconds)
    formatter.formatOptions =
        NSISO8601DateFormatWithInternetDateTime | NSISO8601DateFormatWithFractionalSeconds;
  NSDate* date = [formatter dateFromString:nsString(text)];
  if (date == nil) return std::nullopt;
  return Date(Date::duration(date.timeIntervalSince1970));
}

}  // namespace platform
