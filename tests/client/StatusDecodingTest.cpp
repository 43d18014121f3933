#include "client/StatusDecoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace pellix {
namespace {

platform::Date date(double secondsSince1970) {
  return platform::Date(std::chrono::duration<double>(secondsSince1970));
}

constexpr double mayFirst = 1714566896;  // 2024-05-01T12:34:56Z

void expectOffline(const std::optional<std::string>& body) {
  const Status status = decodeStatus(body);
  EXPECT_EQ(status.state, TrustState::offline);
  EXPECT_FALSE(status.serviceReachable);
  EXPECT_EQ(status.deviceId, "—");
  EXPECT_EQ(status.site, "—");
  EXPECT_EQ(status.email, "—");
  EXPECT_EQ(status.lastHeartbeat, std::nullopt);
}

TEST(StatusDecoding, noAnswerIsOffline) {
  expectOffline(std::nullopt);
}

TEST(StatusDecoding, whatIsNotAJsonObjectIsOffline) {
  for (const char* body :
       {"", " ", "[]", R"(["state"])", R"("authorized")", "1", "null", "true", "{", "{]",
        R"({"state":"authorized")", R"({state:"authorized"})", R"({"state":"authorized"}x)",
        R"([{"state":"authorized"}])", "<html><body>Not Found</body></html>", "\xFF\xFE",
        "{\"state\":\"\xFF\"}"})
    expectOffline(body);
}

TEST(StatusDecoding, deepOrLongNonsenseIsOffline) {
  expectOffline(std::string(8 << 20, '['));
  expectOffline(std::string(8 << 20, '{'));
  expectOffline(std::string(1 << 20, '\0'));
}

TEST(StatusDecoding, whatIsAlmostJsonIsOffline) {
  using namespace std::string_literals;
  for (const std::string& body :
       {"{\"site\":\"a\nb\"}"s, "{\"site\":\"a\0b\"}"s, "{\"site\":\"a\x1F\"}"s,
        R"({"site":"\x"})"s, R"({"site":"\'"})"s, R"({"s\ite":"x"})"s, R"({"a":1.})"s,
        R"({"a":.5})"s, R"({"a":-.5})"s, R"({"a":1.e5})"s, R"({"a":01})"s, R"({"a":+1})"s,
        R"({"a":-})"s, R"({"a":1e})"s, R"({'state':'stale'})"s, R"({"state":"stale",,})"s,
        R"({"state":"stale"} // comment)"s, R"({"a":NaN})"s})
    expectOffline(body);
}

TEST(StatusDecoding, everySpellingOfJsonIsTaken) {
  const Status status = decodeStatus(
      "\r\n\t {\"site\" : \"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0041.\x7F\" ,"
      "\"numbers\":[-0.5e+10,0,1E5,0.25,-3.0]} \n");
  EXPECT_TRUE(status.serviceReachable);
  EXPECT_EQ(status.site, "\"\\/\b\f\n\r\tA.\x7F");
}

TEST(StatusDecoding, theEmptyObjectIsAnAnswer) {
  const Status status = decodeStatus("{}");
  EXPECT_EQ(status.state, TrustState::unknown);
  EXPECT_TRUE(status.serviceReachable);
  EXPECT_EQ(status.deviceId, "—");
  EXPECT_EQ(status.site, "—");
  EXPECT_EQ(status.email, "—");
  EXPECT_EQ(status.lastHeartbeat, std::nullopt);
}

TEST(StatusDecoding, everyMemberIsTaken) {
  const Status status = decodeStatus(
      R"({"state":"authorized","device_id":"HW-UUID-1","site":"https://a.example","email":"a@b.c",)"
      R"("last_heartbeat":"2024-05-01T12:34:56.5Z","more":{"state":"revoked"}})");
  EXPECT_EQ(status.state, TrustState::authorized);
  EXPECT_TRUE(status.serviceReachable);
  EXPECT_EQ(status.deviceId, "HW-UUID-1");
  EXPECT_EQ(status.site, "https://a.example");
  EXPECT_EQ(status.email, "a@b.c");
  EXPECT_EQ(status.lastHeartbeat, date(mayFirst + 0.5));
}

TEST(StatusDecoding, everyStateOfTheWireIsKnown) {
  for (const TrustState state : allTrustStates)
    EXPECT_EQ(decodeStatus(R"({"state":")" + rawValue(state) + R"("})").state, state);
}

TEST(StatusDecoding, anyOtherStateIsUnknownButReachable) {
  for (const char* body :
       {R"({"state":"Authorized"})", R"({"state":""})", R"({"state":null})", R"({"state":1})",
        R"({"state":["authorized"]})", R"({"State":"authorized"})", R"({"state":"authorized "})"}) {
    const Status status = decodeStatus(body);
    EXPECT_EQ(status.state, TrustState::unknown) << body;
    EXPECT_TRUE(status.serviceReachable) << body;
  }
}

TEST(StatusDecoding, numberUnderDeviceIdGivesThePlaceholder) {
  EXPECT_EQ(decodeStatus(R"({"device_id":17})").deviceId, "—");
}

TEST(StatusDecoding, textsOfAnotherTypeAreNotKnown) {
  for (const char* value : {"null", "1", "1.5", "true", "[]", "{}", R"(["x"])"}) {
    const std::string text = value;
    const Status status =
        decodeStatus(R"({"device_id":)" + text + R"(,"site":)" + text + R"(,"email":)" + text +
                     R"(,"last_heartbeat":)" + text + "}");
    EXPECT_TRUE(status.serviceReachable);
    EXPECT_EQ(status.deviceId, "—") << text;
    EXPECT_EQ(status.site, "—") << text;
    EXPECT_EQ(status.email, "—") << text;
    EXPECT_EQ(status.lastHeartbeat, std::nullopt) << text;
  }
}

TEST(StatusDecoding, emptyTextsAreTexts) {
  const Status status = decodeStatus(R"({"device_id":"","site":"","email":""})");
  EXPECT_EQ(status.deviceId, "");
  EXPECT_EQ(status.site, "");
  EXPECT_EQ(status.email, "");
}

TEST(StatusDecoding, textsAreKeptAsTheyAre) {
  EXPECT_EQ(decodeStatus(R"({"device_id":"  R&D_lab <b>\u00e9\ud83d\ude00\n "})").deviceId,
            "  R&D_lab <b>é😀\n ");
}

TEST(StatusDecoding, heartbeatMayHaveAFractionAndAnyZone) {
  const std::pair<const char*, double> rows[] = {
      {"2024-05-01T12:34:56Z", mayFirst},
      {"2024-05-01T12:34:56.123Z", mayFirst + 0.123},
      {"2024-05-01T12:34:56.789+02:00", mayFirst + 0.789 - 7200},
      {"2024-05-01T12:34:56-05:30", mayFirst + 5.5 * 3600}};
  for (const auto& [text, seconds] : rows) {
    const auto heartbeat =
        decodeStatus(std::string(R"({"last_heartbeat":")") + text + R"("})").lastHeartbeat;
    ASSERT_TRUE(heartbeat) << text;
    EXPECT_NEAR(heartbeat->time_since_epoch().count(), seconds, 1e-6) << text;
  }
}

TEST(StatusDecoding, malformedHeartbeatLeavesTheRestIntact) {
  for (const char* text :
       {"2024-05-01 12:34:56", "2024-05-01", "", "yesterday", "2024-05-01T12:34:56",
        "2024-13-01T12:34:56Z", "2024-05-01T12:34:56.Z"}) {
    const Status status = decodeStatus(
        std::string(R"({"state":"stale","device_id":"id","last_heartbeat":")") + text + R"("})");
    EXPECT_EQ(status.state, TrustState::stale);
    EXPECT_EQ(status.deviceId, "id");
    EXPECT_TRUE(status.serviceReachable);
    EXPECT_EQ(status.lastHeartbeat, std::nullopt) << text;
  }
}

TEST(StatusDecoding, orderOfMembersDoesNotMatter) {
  std::array<std::string, 5> members = {R"("device_id":"id")", R"("email":"mail")",
                                        R"("last_heartbeat":"2024-05-01T12:34:56Z")",
                                        R"("site":"site")", R"("state":"revoked")"};
  do {
    std::string body = "{\"other\":[]";
    for (const auto& member : members) body += "," + member;
    const Status status = decodeStatus(body + "}");
    EXPECT_EQ(status.state, TrustState::revoked);
    EXPECT_EQ(status.deviceId, "id");
    EXPECT_EQ(status.site, "site");
    EXPECT_EQ(status.email, "mail");
    EXPECT_EQ(status.lastHeartbeat, date(mayFirst));
  } while (std::next_permutation(members.begin(), members.end()));
}

}  // namespace
}  // namespace pellix
