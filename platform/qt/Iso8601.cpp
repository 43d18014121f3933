#include "platform/Iso8601.h"

#include <QDateTime>
#include <QRegularExpression>

#include "platform/qt/Conversions.h"

using namespace Qt::StringLiterals;

namespace platform {

// Of what internet date-times leave open, this takes the narrow reading: capital T and Z, a colon
// in the offset, no 24:00:00 and no leap second; QDateTime takes any of them, and milliseconds
// only.
std::optional<Date> dateFromIso8601(const std::string& text, Iso8601Format format) {
  static const QRegularExpression form(
      u"\\A(\\d{4}-\\d\\d-\\d\\dT(?:[01]\\d|2[0-3]):[0-5]\\d:[0-5]\\d)(\\.\\d+)?"
      "(Z|[+-](?:[01]\\d|2[0-3]):[0-5]\\d)\\z"_s);
  const QRegularExpressionMatch match = form.match(toQString(text));
  const bool wantsFraction = format == Iso8601Format::internetDateTimeWithFractionalSeconds;
  if (!match.hasMatch() || match.hasCaptured(2) != wantsFraction) return {};

  const QDateTime whole = QDateTime::fromString(match.captured(1) + match.captured(3), Qt::ISODate);
  if (!whole.isValid()) return {};
  return Date(std::chrono::seconds(whole.toSecsSinceEpoch())) +
         std::chrono::duration<double>(match.capturedView(2).toDouble());
}

}  // namespace platform
