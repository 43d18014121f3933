#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace platform {

/// A point in time in seconds with double precision; it may hold any double, sane or not.
using Date = std::chrono::sys_time<std::chrono::duration<double>>;

enum class Iso8601Format {
  internetDateTime,                       ///< 2024-05-01T12:34:56Z, 2024-05-01T12:34:56+02:00
  internetDateTimeWithFractionalSeconds,  ///< 2024-05-01T12:34:56.789Z; the fraction is required
};

/// The point in time that `text` spells in that format, zone designator included, to the
/// millisecond or better; none for a text that does not begin with one. What is taken beside the
/// format is the platform's choice. Any thread; never fails.
std::optional<Date> dateFromIso8601(const std::string& text, Iso8601Format format);

}  // namespace platform
