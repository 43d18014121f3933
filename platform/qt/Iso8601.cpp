#include "platform/Iso8601.h"

#include <charconv>
#include <string_view>

namespace platform {
namespace {

/// Takes a text apart from its front. After the first mismatch every step fails.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest(text) {}

  /// Exactly `count` ASCII digits.
  int digits(std::size_t count) {
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (!startsWithDigit()) return fail();
      value = 10 * value + (rest.front() - '0');
      rest.remove_prefix(1);
    }
    return value;
  }

  void literal(char expected) {
    if (!startsWith(expected)) {
      fail();
      return;
    }
    rest.remove_prefix(1);
  }

  /// A point and at least one digit.
  double fraction() {
    const std::string_view start = rest;
    literal('.');
    if (!startsWithDigit()) return fail();
    while (startsWithDigit()) rest.remove_prefix(1);
    double value = 0;
    std::from_chars(start.data(), rest.data(), value, std::chars_format::fixed);
    return value;
  }

  /// "Z", or the hours and minutes east of Greenwich.
  std::chrono::minutes zone() {
    if (startsWith('Z')) {
      rest.remove_prefix(1);
      return {};
    }
    const bool isWest = startsWith('-');
    literal(isWest ? '-' : '+');
    const int hours = digits(2);
    literal(':');
    const int minutes = digits(2);
    if (hours > 23 || minutes > 59) fail();
    const auto offset = std::chrono::hours(hours) + std::chrono::minutes(minutes);
    return isWest ? -offset : offset;
  }

  bool isAtEnd() const { return matches && rest.empty(); }

 private:
  bool startsWith(char c) const { return !rest.empty() && rest.front() == c; }
  bool startsWithDigit() const {
    return !rest.empty() && rest.front() >= '0' && rest.front() <= '9';
  }
  int fail() {
    matches = false;
    rest = {};
    return 0;
  }

  std::string_view rest;
  bool matches = true;
};

}  // namespace

// Of what internet date-times leave open, this takes the narrow reading: capital T and Z, a colon
// in the offset, no 24:00:00 and no leap second.
std::optional<Date> dateFromIso8601(const std::string& text, Iso8601Format format) {
  Scanner scanner(text);
  const int year = scanner.digits(4);
  scanner.literal('-');
  const int month = scanner.digits(2);
  scanner.literal('-');
  const int day = scanner.digits(2);
  scanner.literal('T');
  const int hour = scanner.digits(2);
  scanner.literal(':');
  const int minute = scanner.digits(2);
  scanner.literal(':');
  const int second = scanner.digits(2);
  const bool hasFraction = format == Iso8601Format::internetDateTimeWithFractionalSeconds;
  const double fraction = hasFraction ? scanner.fraction() : 0;
  const std::chrono::minutes zone = scanner.zone();

  const std::chrono::year_month_day date(std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (!scanner.isAtEnd() || !date.ok() || hour > 23 || minute > 59 || second > 59) return {};
  const auto whole = std::chrono::sys_days(date) + std::chrono::hours(hour) +
                     std::chrono::minutes(minute) + std::chrono::seconds(second) - zone;
  return whole + std::chrono::duration<double>(fraction);
}

}  // namespace platform
