#include <cmath>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "platform/Iso8601.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using platform::Iso8601Format;

struct Instant {
  bool hasFraction;
  double secondsSince1970;
};

std::optional<Instant> reference(const std::string& text) {
  static const std::regex form(
      "([0-9]{4})-(0[1-9]|1[0-2])-([0-9]{2})T([01][0-9]|2[0-3]):([0-5][0-9]):([0-5][0-9])"
      "([.][0-9]+)?(Z|([+-])([01][0-9]|2[0-3]):([0-5][0-9]))");
  std::smatch part;
  if (!std::regex_match(text, part, form) || part[1] == "0000") return {};
  const auto number = [&](std::size_t i) { return part[i].matched ? std::stoi(part[i]) : 0; };

  std::tm calendar{};
  calendar.tm_year = number(1) - 1900;
  calendar.tm_mon = number(2) - 1;
  calendar.tm_mday = number(3);
  calendar.tm_hour = number(4);
  calendar.tm_min = number(5);
  calendar.tm_sec = number(6);
  const std::time_t seconds = timegm(&calendar);
  if (calendar.tm_mday != number(3)) return {};  // it was carried into the next month

  const int east = (number(10) * 60 + number(11)) * 60 * (part[9] == "-" ? -1 : 1);
  const double fraction =
      part[7].matched ? std::strtod(("0" + part[7].str()).c_str(), nullptr) : 0.0;
  return Instant{part[7].matched, static_cast<double>(seconds - east) + fraction};
}

// The whole second in the middle of the format's own range is spelt and read back as it is.
void requireRoundTrip(double seconds) {
  const double whole = std::floor(seconds);
  const auto time = static_cast<std::time_t>(whole);
  std::tm calendar{};
  gmtime_r(&time, &calendar);
  if (calendar.tm_year < 1 - 1900 || calendar.tm_year > 9999 - 1900)
    return;  // the zone carried it out
  char digits[64];
  std::snprintf(digits, sizeof digits, "%04d-%02d-%02dT%02d:%02d:%02d", calendar.tm_year + 1900,
                calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour, calendar.tm_min,
                calendar.tm_sec);
  const platform::Date date{std::chrono::duration<double>(whole)};
  const std::string text = digits;
  fuzz::require(dateFromIso8601(text + "Z", Iso8601Format::internetDateTime) == date,
                "a date survives being spelt without a fraction");
  fuzz::require(dateFromIso8601(text + ".000-00:00",
                                Iso8601Format::internetDateTimeWithFractionalSeconds) == date,
                "a date survives being spelt with a fraction");
}

}  // namespace

void fuzz::checkInput(std::string_view input) {
  // The reference recurses for each character.
  const std::string text(input.substr(0, 512));
  const auto expected = reference(text);
  for (const bool hasFraction : {false, true}) {
    const auto date =
        dateFromIso8601(text, hasFraction ? Iso8601Format::internetDateTimeWithFractionalSeconds
                                          : Iso8601Format::internetDateTime);
    if constexpr (!hasReferences) continue;
    require(date.has_value() == (expected && expected->hasFraction == hasFraction),
            "exactly what the format spells is taken");
    if (!date) continue;
    const double seconds = date->time_since_epoch().count();
    require(std::abs(seconds - expected->secondsSince1970) < 1e-4, "the instant is right");
    requireRoundTrip(seconds);
  }
}
