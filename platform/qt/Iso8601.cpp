#include "platform/Iso8601.h"

#include <QRegularExpression>

#include "platform/qt/Conversions.h"

using namespace Qt::StringLiterals;

namespace platform {

// Of what internet date-times leave open, this takes the narrow reading: capital T and Z, a colon
// in the offset, no 24:00:00 and no leap second. And it takes the year 0, which QDateTime lacks.
std::optional<Date> dateFromIso8601(const std::string& text, Iso8601Format format) {
  static const QRegularExpression form(
      u"\\A(\\d{4})-(\\d\\d)-(\\d\\d)T([01]\\d|2[0-3]):([0-5]\\d):([0-5]\\d)"
      "(\\.\\d+)?(?:Z|([+-])([01]\\d|2[0-3]):([0-5]\\d))\\z"_s);
  const QRegularExpressionMatch match = form.match(toQString(text));
  const bool wantsFraction = format == Iso8601Format::internetDateTimeWithFractionalSeconds;
  if (!match.hasMatch() || match.hasCaptured(7) != wantsFraction) return {};

  const auto number = [&](int group) { return match.capturedView(group).toInt(); };
  const std::chrono::year_month_day date(std::chrono::year(number(1)),
                                         std::chrono::month(match.capturedView(2).toUInt()),
                                         std::chrono::day(match.capturedView(3).toUInt()));
  if (!date.ok()) return {};
  const auto time = std::chrono::hours(number(4)) + std::chrono::minutes(number(5)) +
                    std::chrono::seconds(number(6));
  const auto offset = std::chrono::hours(number(9)) + std::chrono::minutes(number(10));
  const auto whole =
      std::chrono::sys_days(date) + time - (match.capturedView(8) == u"-" ? -offset : offset);
  return whole + std::chrono::duration<double>(match.capturedView(7).toDouble());
}

}  // namespace platform
