#include "identity/Utf8.h"

#include <gtest/gtest.h>

#include <string>

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
