#import <Foundation/Foundation.h>

#include <unicode/ucal.h>
#include <unicode/uchar.h>
#include <unicode/udat.h>

#include <algorithm>
#include <optional>
#include <string>

#include "doubles/Doubles.h"
#include "runtime/Runtime.h"

namespace {

/// Milliseconds since 1970, or none if the text does not begin with what the pattern spells. How
/// far it was read is not looked at.
std::optional<double> parse(const std::u16string& text, const std::u16string& pattern) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::LocalUDateFormatPointer formatter(udat_open(UDAT_PATTERN, UDAT_PATTERN, "en_US_POSIX",
                                                         u"GMT", -1, pattern.c_str(), -1, &status));
  udat_setLenient(formatter.getAlias(), false);
  const icu::LocalUCalendarPointer calendar(
      ucal_clone(udat_getCalendar(formatter.getAlias()), &status));
  ucal_clear(calendar.getAlias());
  udat_parseCalendar(formatter.getAlias(), calendar.getAlias(), text.data(),
                     static_cast<int32_t>(text.size()), nullptr, &status);
  // A century far away stands for the one around 2000, which years of two digits belong to.
  const int32_t year = ucal_get(calendar.getAlias(), UCAL_YEAR, &status);
  if (year >= 12000 && year < 12100)
    ucal_set(calendar.getAlias(), UCAL_YEAR, year - 12000 + (year < 12050 ? 2000 : 1900));
  const double time = ucal_getMillis(calendar.getAlias(), &status);
  if (U_FAILURE(status)) return {};
  return time;
}

/// ICU makes milliseconds of a fraction by dividing by a power of ten, which is 0 from 35 digits
/// on.
bool hasDeadlyFraction(const std::u16string& text, const std::u16string& patternBeforeIt) {
  constexpr std::size_t deadly = 35;
  const auto point = text.find(u'.');
  if (point == text.npos || !parse(text.substr(0, point), patternBeforeIt)) return false;
  std::size_t digits = 0;
  while (point + 1 + digits < text.size() && u_isdigit(text[point + 1 + digits])) digits++;
  return digits >= deadly;
}

}  // namespace

@implementation NSISO8601DateFormatter

- (instancetype)init {
  self = [super init];
  _formatOptions = NSISO8601DateFormatWithInternetDateTime;
  return self;
}

// As Core Foundation does it: on ICU, with these patterns, and without a look at what is left over.
- (NSDate*)dateFromString:(NSString*)string {
  doubles::expect(string, NSString.class);
  if ((_formatOptions & ~NSISO8601DateFormatWithFractionalSeconds) !=
      NSISO8601DateFormatWithInternetDateTime)
    runtime::violation("Another ISO 8601 format than an internet date-time");
  constexpr NSUInteger longest = 1024;  // what is beyond is not read at all
  std::u16string text(std::min(string.length, longest), u'\0');
  [string getCharacters:reinterpret_cast<unichar*>(text.data()) range:NSMakeRange(0, text.size())];

  std::u16string pattern = u"yyyy-MM-dd'T'HH:mm:ss";
  if (_formatOptions & NSISO8601DateFormatWithFractionalSeconds) {
    if (hasDeadlyFraction(text, pattern)) {
      runtime::violation("A fraction of 35 digits or more ends the process on Intel Macs");
      return nil;
    }
    pattern += u".SSS";
  }
  const auto milliseconds = parse(text, pattern + u"XXXXX");
  return milliseconds ? [NSDate dateWithTimeIntervalSince1970:*milliseconds / 1000] : nil;
}

@end
