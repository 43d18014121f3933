#include "platform/Iso8601.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using platform::dateFromIso8601;
using enum platform::Iso8601Format;

// What internet date-times leave to the reader, and other systems may take differently.
TEST(Iso8601, takesTheNarrowReading) {
  for (const char* text : {"2024-05-01t12:34:56Z",
                           "2024-05-01T12:34:56z",
                           "2024-05-01 12:34:56Z",
                           "2024-05-01T12:34:56+0200",
                           "2024-05-01T12:34:56+02",
                           "2024-05-01T12:34:56+2:00",
                           "2024-05-01T12:34:56+24:00",
                           "2024-05-01T12:34:56+02:60",
                           "2024-05-01T24:00:00Z",
                           "2024-05-01T12:34:60Z",
                           "2016-12-31T23:59:60Z",
                           "20240501T123456Z",
                           "2024-5-1T12:34:56Z",
                           "+2024-05-01T12:34:56Z",
                           "-2024-05-01T12:34:56Z",
                           "12024-05-01T12:34:56Z",
                           " 2024-05-01T12:34:56Z",
                           "2024-05-01T12:34:56Z ",
                           "2024-05-01T12:34:56Zx",
                           "2024-05-01T12:34:56Z\n",
                           "2024-05-01T12:34:56 Z",
                           "2024-W18-3T12:34:56Z",
                           "2024-122T12:34:56Z",
                           "2024-05-01T12:34:56\u2212"
                           "02:00"}) {
    EXPECT_EQ(dateFromIso8601(text, internetDateTime), std::nullopt) << text;
  }
  EXPECT_EQ(dateFromIso8601(std::string("2024-05-01T12:34:56Z\0", 21), internetDateTime),
            std::nullopt);
  for (const char* text : {"2024-05-01T12:34:56,789Z", "2024-05-01T12:34:56.7e1Z",
                           "2024-05-01T12:34:56.-7Z", "2024-05-01T12:34:56..7Z"}) {
    EXPECT_EQ(dateFromIso8601(text, internetDateTimeWithFractionalSeconds), std::nullopt) << text;
  }
}

TEST(Iso8601, daysThatTheCalendarLacksGiveNothing) {
  for (const char* text : {"2023-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2024-02-30T00:00:00Z",
                           "2024-04-31T00:00:00Z", "2024-05-00T00:00:00Z"}) {
    EXPECT_EQ(dateFromIso8601(text, internetDateTime), std::nullopt) << text;
  }
}

TEST(Iso8601, everyYearButTheYear0IsRead) {
  const auto seconds = [](const std::string& text) {
    return dateFromIso8601(text, internetDateTime).value().time_since_epoch().count();
  };
  EXPECT_EQ(dateFromIso8601("0000-12-31T23:59:59Z", internetDateTime), std::nullopt);
  EXPECT_EQ(seconds("0001-01-01T00:00:00Z"), -62135596800);
  EXPECT_EQ(seconds("0001-01-01T00:00:00+23:59"), -62135596800 - 86340);
  EXPECT_EQ(seconds("9999-12-31T23:59:59-23:59"), 253402300799 + 86340);
}

TEST(Iso8601, aFractionMayHaveAnyNumberOfDigits) {
  const auto seconds = [](const std::string& fraction) {
    return dateFromIso8601("1970-01-01T00:00:01." + fraction + "Z",
                           internetDateTimeWithFractionalSeconds)
        .value()
        .time_since_epoch()
        .count();
  };
  EXPECT_EQ(seconds("5"), 1.5);
  EXPECT_EQ(seconds("25"), 1.25);
  EXPECT_EQ(seconds("000000001"), 1.000000001);
  EXPECT_EQ(seconds(std::string(1000, '9')), 2);
  EXPECT_EQ(seconds("5" + std::string(1'000'000, '0')), 1.5);
  EXPECT_EQ(seconds(std::string(1'000'000, '0') + "1"), 1);
}

}  // namespace
