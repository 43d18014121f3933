#include "model/Status.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace pellix {
namespace {

using platform::Date;
using Seconds = std::chrono::duration<double>;

const Date now{Seconds(800000000)};

std::string descriptionAfter(double elapsed) {
  const Status status{.lastHeartbeat = Date(now.time_since_epoch() - Seconds(elapsed))};
  return status.lastCheckDescription(now);
}

TEST(Status, startsWithAllDefaults) {
  const Status status;
  EXPECT_EQ(status.state, TrustState::unknown);
  EXPECT_EQ(status.deviceId, "\u2014");
  EXPECT_EQ(status.site, "\u2014");
  EXPECT_EQ(status.email, "\u2014");
  EXPECT_EQ(status.lastHeartbeat, std::nullopt);
  EXPECT_FALSE(status.serviceReachable);
}

TEST(Status, takesItsFieldsInOrder) {
  const Status status{TrustState::stale, "id", "site", "mail", now, true};
  EXPECT_EQ(status.state, TrustState::stale);
  EXPECT_EQ(status.deviceId, "id");
  EXPECT_EQ(status.site, "site");
  EXPECT_EQ(status.email, "mail");
  EXPECT_EQ(status.lastHeartbeat, now);
  EXPECT_TRUE(status.serviceReachable);
}

TEST(Status, copiesAreIndependent) {
  const Status first;
  Status copy = first;
  copy.state = TrustState::revoked;
  copy.deviceId = "id";
  copy.lastHeartbeat = now;
  copy.serviceReachable = true;
  EXPECT_EQ(first.state, TrustState::unknown);
  EXPECT_EQ(first.deviceId, "\u2014");
  EXPECT_EQ(first.lastHeartbeat, std::nullopt);
  EXPECT_FALSE(first.serviceReachable);
}

TEST(LastCheckDescription, isNeverWithoutAHeartbeat) {
  EXPECT_EQ(Status().lastCheckDescription(now), "never");
  EXPECT_EQ(
      (Status{TrustState::authorized, "id", "site", "mail", {}, true}.lastCheckDescription(now)),
      "never");
}

TEST(LastCheckDescription, changesUnitAtEachBound) {
  const std::pair<double, std::string> rows[] = {{-1e15, "just now"},
                                                 {-86400, "just now"},
                                                 {-0.5, "just now"},
                                                 {0, "just now"},
                                                 {59.9, "just now"},
                                                 {60, "1 min ago"},
                                                 {119, "1 min ago"},
                                                 {120, "2 min ago"},
                                                 {3599, "59 min ago"},
                                                 {3599.9, "59 min ago"},
                                                 {3600, "1 h ago"},
                                                 {7199, "1 h ago"},
                                                 {7200, "2 h ago"},
                                                 {86399, "23 h ago"},
                                                 {86400, "1 d ago"},
                                                 {172799, "1 d ago"},
                                                 {172800, "2 d ago"},
                                                 {30.0 * 86400, "30 d ago"},
                                                 {400.0 * 86400, "400 d ago"},
                                                 {1e6 * 86400, "1000000 d ago"}};
  for (const auto& [elapsed, text] : rows) EXPECT_EQ(descriptionAfter(elapsed), text) << elapsed;
}

TEST(LastCheckDescription, usesTheWallClockUnlessToldOtherwise) {
  const Date twoHoursAgo = std::chrono::system_clock::now() - std::chrono::hours(2);
  EXPECT_EQ(Status{.lastHeartbeat = twoHoursAgo}.lastCheckDescription(), "2 h ago");
}

// The order of the texts by age, in seconds at least.
double leastAge(const std::string& text) {
  if (text == "just now") return 0;
  const double number = std::stod(text);
  if (text.ends_with(" min ago")) return number * 60;
  return number * (text.ends_with(" h ago") ? 3600 : 86400);
}

TEST(LastCheckDescription, growsWithTheAgeAndNeverOverstatesIt) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> exponent(-2, 10);
  for (int i = 0; i < 20000; ++i) {
    const double younger = std::pow(10, exponent(random));
    const double older = younger * 1.01;
    EXPECT_LE(leastAge(descriptionAfter(younger)), leastAge(descriptionAfter(older)));
    EXPECT_LE(leastAge(descriptionAfter(younger)), younger + 1e-3);
  }
}

using LastCheckDescriptionDeathTest = testing::Test;

TEST(LastCheckDescriptionDeathTest, stopsOnAnAgeThatIsNo64BitNumber) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double heartbeat : {infinity, -infinity, std::numeric_limits<double>::quiet_NaN(),
                                 -9223372036854775808.0, 9223372036854777856.0, 1e300})
    EXPECT_DEATH(
        (Status{.lastHeartbeat = Date(Seconds(heartbeat))}.lastCheckDescription(Date(Seconds(0)))),
        "^Fatal error: The age of the last heartbeat does not fit a 64-bit number of seconds\n$");
}

TEST(LastCheckDescription, takesTheLargestAgesThatFit) {
  // 2^63 itself is just outside; the next double below it, and -2^63, are inside.
  const auto description = [](double heartbeat) {
    return Status{.lastHeartbeat = Date(Seconds(heartbeat))}.lastCheckDescription(Date(Seconds(0)));
  };
  EXPECT_EQ(description(-9223372036854774784.0), "106751991167300 d ago");
  EXPECT_EQ(description(9223372036854775808.0), "just now");
}

}  // namespace
}  // namespace pellix
