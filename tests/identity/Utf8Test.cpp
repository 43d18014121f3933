#include "identity/Utf8.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/fuzz/References.h"

namespace pellix {
namespace {

using namespace std::string_view_literals;

TEST(Utf8, takesEveryLengthUpToItsBounds) {
  for (const auto text :
       {""sv, "a"sv, "\0"sv, "\x7F"sv, "\xC2\x80"sv, "\xDF\xBF"sv, "\xE0\xA0\x80"sv,
        "\xE1\x80\x80"sv, "\xEC\xBF\xBF"sv, "\xED\x80\x80"sv, "\xED\x9F\xBF"sv, "\xEE\x80\x80"sv,
        "\xEF\xBF\xBF"sv, "\xF0\x90\x80\x80"sv, "\xF1\x80\x80\x80"sv, "\xF3\xBF\xBF\xBF"sv,
        "\xF4\x8F\xBF\xBF"sv, "GEN-1\n—"sv})
    EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(text);
}

TEST(Utf8, refusesWhatIsMalformed) {
  for (const auto text : {"\x80"sv,
                          "\xBF"sv,
                          "\xC0\x80"sv,
                          "\xC1\xBF"sv,
                          "\xC2"sv,
                          "\xC2\x7F"sv,
                          "\xC2\xC0"sv,
                          "\xE0\x9F\xBF"sv,
                          "\xE0\xA0"sv,
                          "\xE1\x80"sv,
                          "\xE1\x80\xC0"sv,
                          "\xE1\x7F\x80"sv,
                          "\xED\xA0\x80"sv,
                          "\xED\xBF\xBF"sv,
                          "\xF0\x8F\xBF\xBF"sv,
                          "\xF1\x80\x80"sv,
                          "\xF1\x80\x80\xC0"sv,
                          "\xF4\x90\x80\x80"sv,
                          "\xF5\x80\x80\x80"sv,
                          "\xFE"sv,
                          "\xFF"sv,
                          "ok\xC2"sv,
                          "\xC2\x80\x80"sv})
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
}

TEST(Utf8, everyBoundOfEveryByteIsWhereArithmeticPutsIt) {
  // One byte on each side of every bound that a byte of a sequence has.
  const auto bounds =
      "\x00\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF"sv;
  // What follows must not be taken for the end of a sequence that is cut short.
  std::string text = "????\x80\x80\x80";
  for (const char first : bounds)
    for (const char second : bounds)
      for (const char third : bounds)
        for (const char fourth : bounds) {
          text.replace(0, 4, {first, second, third, fourth});
          for (const std::size_t length : {1u, 2u, 3u, 4u}) {
            if (length < 4 && fourth != bounds.back()) continue;  // checked once, not again
            const auto bytes = std::string_view(text).substr(0, length);
            ASSERT_EQ(isValidUtf8(bytes), fuzz::codePoints(bytes).has_value())
                << testing::PrintToString(bytes);
          }
        }
}

TEST(TrimmedOfBlanks, removesTabsAndEverySpaceSeparatorAtBothEnds) {
  for (const std::string_view blank :
       {"\t", " ", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005",
        "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u202F", "\u205F", "\u3000"}) {
    const std::string ends = std::string(blank) + " \t" + std::string(blank);
    EXPECT_EQ(trimmedOfBlanks(ends + "a" + std::string(blank) + "b" + ends),
              "a" + std::string(blank) + "b")
        << testing::PrintToString(blank);
    EXPECT_EQ(trimmedOfBlanks(ends), "");
  }
}

TEST(TrimmedOfBlanks, keepsLineBreaksAndOtherInvisibleCharacters) {
  for (const std::string text : {"\r", "\n", "\v", "\f", "\u0085", "\u180E", "\u200B", "\u2028",
                                 "\u2029", "\u2060", "\uFEFF"})
    EXPECT_EQ(trimmedOfBlanks(" " + text + "a" + text + " "), text + "a" + text);
  EXPECT_EQ(trimmedOfBlanks(""), "");
}

}  // namespace
}  // namespace pellix
