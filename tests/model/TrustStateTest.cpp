#include "model/TrustState.h"

#include <gtest/gtest.h>

#include <unordered_set>
#include <vector>

namespace pellix {
namespace {

using platform::Color;

struct Row {
  TrustState state;
  std::string rawValue, symbol, summary;
  std::optional<Color> tint;
  std::string glyph;
};

const std::vector<Row> table = {
    {TrustState::authorized,
     "authorized",
     "checkmark.shield.fill",
     "Device authorized",
     {},
     "\u25C6"},
    {TrustState::notEnrolled, "not_enrolled", "exclamationmark.shield", "Not authorized yet",
     Color::systemOrange, "\u25C7"},
    {TrustState::offline, "offline", "shield.slash", "Cannot reach WordPress", {}, "\u25CC"},
    {TrustState::stale, "stale", "clock.badge.exclamationmark", "Trust expired",
     Color::systemOrange, "\u25D1"},
    {TrustState::revoked, "revoked", "xmark.shield.fill", "Revoked by IT", Color::systemRed,
     "\u2715"},
    {TrustState::unknown, "unknown", "shield", "Checking\u2026", {}, "\u25CD"},
};

TEST(TrustState, hasTheProductsCasesInItsOrder) {
  ASSERT_EQ(allTrustStates.size(), table.size());
  for (std::size_t position = 0; position < table.size(); ++position) {
    EXPECT_EQ(allTrustStates[position], table[position].state);
    EXPECT_EQ(static_cast<std::size_t>(allTrustStates[position]), position);
  }
}

TEST(TrustState, everyCasePresentsItsRow) {
  for (const Row& row : table) {
    EXPECT_EQ(rawValue(row.state), row.rawValue);
    EXPECT_EQ(symbol(row.state), row.symbol);
    EXPECT_EQ(summary(row.state), row.summary);
    EXPECT_EQ(tint(row.state), row.tint) << row.rawValue;
    EXPECT_EQ(glyph(row.state), row.glyph);
  }
}

TEST(TrustState, rawValuesRoundTrip) {
  for (const TrustState state : allTrustStates)
    EXPECT_EQ(trustStateWithRawValue(rawValue(state)), state);
}

TEST(TrustState, unknownIsARawValueOfItsOwn) {
  EXPECT_EQ(trustStateWithRawValue("unknown"), TrustState::unknown);
}

TEST(TrustState, onlyExactRawValuesAreTaken) {
  using namespace std::string_view_literals;
  for (const auto text :
       {""sv, "notEnrolled"sv, "NOT_ENROLLED"sv, "Revoked"sv, "Authorized"sv, " authorized"sv,
        "unknown "sv, "not enrolled"sv, "authorized\n"sv, "authorized\0"sv, "author"sv})
    EXPECT_EQ(trustStateWithRawValue(text), std::nullopt) << text;
}

TEST(TrustState, tintIsNoneForExactlyAuthorizedOfflineAndUnknown) {
  for (const TrustState state : allTrustStates)
    EXPECT_EQ(!tint(state).has_value(), state == TrustState::authorized ||
                                            state == TrustState::offline ||
                                            state == TrustState::unknown);
}

TEST(TrustState, glyphsAreOneCharacterOfThreeBytes) {
  for (const TrustState state : allTrustStates) {
    EXPECT_EQ(glyph(state).size(), 3u);
    EXPECT_EQ(glyph(state)[0] & 0xF0, 0xE0) << "one three-byte sequence";
  }
}

TEST(TrustState, summaryOfUnknownEndsInOneEllipsisCharacter) {
  EXPECT_EQ(summary(TrustState::unknown).size(), std::string("Checking").size() + 3);
}

TEST(TrustState, hashIsThatOfTheRawValue) {
  for (const TrustState state : allTrustStates)
    EXPECT_EQ(std::hash<TrustState>{}(state), std::hash<std::string>{}(rawValue(state)));
  EXPECT_EQ(std::unordered_set<TrustState>(allTrustStates.begin(), allTrustStates.end()).size(),
            allTrustStates.size());
}

}  // namespace
}  // namespace pellix
