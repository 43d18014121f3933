#include "platform/Iso8601.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using platform::dateFromIso8601;
using enum platform::Iso8601Format;

/// Seconds since 1970, or nothing.
std::optional<double> seconds(const std::string& text) {
  const auto date = dateFromIso8601(text, internetDateTime);
  if (!date) return {};
  return date->time_since_epoch().count();
}

std::optional<double> secondsWithFraction(const std::string& text) {
  const auto date = dateFromIso8601(text, internetDateTimeWithFractionalSeconds);
  if (!date) return {};
  return date->time_since_epoch().count();
}

TEST(Iso8601Contract, readsADateTimeInUtc) {
  EXPECT_EQ(seconds("1970-01-01T00:00:00Z"), 0);
  EXPECT_EQ(seconds("2024-05-01T12:34:56Z"), 1714566896);
  EXPECT_EQ(seconds("2001-01-01T00:00:00Z"), 978307200);
  EXPECT_EQ(seconds("1969-12-31T23:59:59Z"), -1);
  EXPECT_EQ(seconds("2038-01-19T03:14:08Z"), 2147483648);
  EXPECT_EQ(seconds("9999-12-31T23:59:59Z"), 253402300799);
}

TEST(Iso8601Contract, readsAnOffset) {
  EXPECT_EQ(seconds("2024-05-01T12:34:56+00:00"), 1714566896);
  EXPECT_EQ(seconds("2024-05-01T14:34:56+02:00"), 1714566896);
  EXPECT_EQ(seconds("2024-05-01T07:04:56-05:30"), 1714566896);
  EXPECT_EQ(seconds("1970-01-01T00:00:00+01:00"), -3600);
}

TEST(Iso8601Contract, readsAFraction) {
  EXPECT_NEAR(secondsWithFraction("2024-05-01T12:34:56.789Z").value(), 1714566896.789, 1e-6);
  EXPECT_NEAR(secondsWithFraction("2024-05-01T14:34:56.789+02:00").value(), 1714566896.789, 1e-6);
  EXPECT_EQ(secondsWithFraction("2024-05-01T12:34:56.000Z"), 1714566896);
  EXPECT_NEAR(secondsWithFraction("1969-12-31T23:59:59.250Z").value(), -0.75, 1e-6);
}

TEST(Iso8601Contract, aFractionMayHaveAnyNumberOfDigits) {
  for (const unsigned more : {0u, 2u, 9u, 33u, 34u, 99u, 100'000u}) {
    const std::string second = "1970-01-01T00:00:01.";
    EXPECT_NEAR(secondsWithFraction(second + "5" + std::string(more, '0') + "Z").value_or(0), 1.5,
                1e-3);
    EXPECT_NEAR(secondsWithFraction(second + "9" + std::string(more, '9') + "Z").value_or(0),
                more == 0 ? 1.9 : 2, 2e-3);
  }
}

TEST(Iso8601Contract, theTwoFormatsDoNotMix) {
  EXPECT_EQ(seconds("2024-05-01T12:34:56.789Z"), std::nullopt);
  EXPECT_EQ(secondsWithFraction("2024-05-01T12:34:56Z"), std::nullopt);
  EXPECT_EQ(secondsWithFraction("2024-05-01T14:34:56+02:00"), std::nullopt);
}

TEST(Iso8601Contract, leapDaysAreThoseOfTheGregorianCalendar) {
  EXPECT_EQ(seconds("2024-02-29T00:00:00Z"), 1709164800);
  EXPECT_EQ(seconds("2000-02-29T00:00:00Z"), 951782400);
}

TEST(Iso8601Contract, whatLacksAPartGivesNothing) {
  for (const char* text :
       {"", "2024-05-01", "2024-05-01T12:34:56", "2024-05-01T12:34Z", "12:34:56Z",
        "2024-05-01 12:34:56", "T12:34:56Z", "2024-05-01T12:34:56+", "2024-05-01TZ"}) {
    EXPECT_EQ(seconds(text), std::nullopt) << text;
    EXPECT_EQ(secondsWithFraction(text), std::nullopt) << text;
  }
}

TEST(Iso8601Contract, whatIsNoDateTimeGivesNothing) {
  for (const char* text :
       {"never", "—", "1714566896", "x2024-05-01T12:34:56Z", "2024-13-01T00:00:00Z",
        "2024-00-01T00:00:00Z", "2024-05-32T00:00:00Z", "2024-05-01T25:00:00Z",
        "2024-05-01T12:61:00Z", "2024-05-01T12:34:62Z", "2024-0a-01T00:00:00Z",
        "2024-05-01T12:34:5\xff"
        "Z"}) {
    EXPECT_EQ(seconds(text), std::nullopt) << text;
  }
  EXPECT_EQ(secondsWithFraction("2024-05-01T12:34:56.Z"), std::nullopt);
  EXPECT_EQ(secondsWithFraction("2024-05-01T12:34:56.xZ"), std::nullopt);
  EXPECT_EQ(seconds(std::string(1'000'000, '2')), std::nullopt);
}

}  // namespace
