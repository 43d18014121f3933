#include "platform/Json.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Members = std::map<std::string, std::string>;

/// Every member that one of these tests looks for.
std::optional<Members> jsonStringMembers(std::string_view text) {
  return platform::jsonStringMembers(
      text, {"a", "b", "c", "d", "e", "f", "h", "state", "email", "ключ", "last"});
}

TEST(JsonContract, givesTheStringMembersOfAnObject) {
  const Members expected = {{"state", "authorized"}, {"email", ""}};
  EXPECT_EQ(jsonStringMembers(R"({"state":"authorized","email":""})"), expected);
  EXPECT_EQ(jsonStringMembers("\r\n\t {\"email\" : \"\",\n\"state\" : \"authorized\" } \n"),
            expected);
}

TEST(JsonContract, anEmptyObjectHasNoMembers) {
  EXPECT_EQ(jsonStringMembers("{}"), Members());
}

TEST(JsonContract, membersOfOtherTypesAreLeftOut) {
  EXPECT_EQ(jsonStringMembers(
                R"({"a":1,"b":1.5e3,"c":true,"d":null,"e":["x"],"f":{"g":"x"},"h":"kept"})"),
            (Members{{"h", "kept"}}));
}

TEST(JsonContract, keysAreExact) {
  const auto* const text = R"({"State":"x"," state":"y","":"z","state\u0000":"v"})";
  EXPECT_EQ(jsonStringMembers(text), Members());
  EXPECT_EQ(platform::jsonStringMembers(text, {"State", " state", ""}),
            (Members{{"State", "x"}, {" state", "y"}, {"", "z"}}));
  EXPECT_EQ(platform::jsonStringMembers(text, {}), Members());
}

TEST(JsonContract, escapesAreResolved) {
  EXPECT_EQ(jsonStringMembers(R"({"\u0061":"\"\\\/\b\f\n\r\t\u20ac\ud83d\ude00"})"),
            (Members{{"a", "\"\\/\b\f\n\r\t€😀"}}));
}

TEST(JsonContract, textBeyondAsciiIsUtf8) {
  EXPECT_EQ(jsonStringMembers("{\"ключ\":\"—…😀\"}"), (Members{{"ключ", "—…😀"}}));
}

TEST(JsonContract, aByteOrderMarkIsPartOfTheText) {
  EXPECT_EQ(jsonStringMembers("{\"a\":\"\uFEFFx\uFEFF\",\"b\":\"\\\"\uFEFF\"}"),
            (Members{{"a", "\uFEFFx\uFEFF"}, {"b", "\"\uFEFF"}}));
  EXPECT_EQ(jsonStringMembers("{\"\uFEFFa\":\"x\"}"), Members());
  EXPECT_EQ(jsonStringMembers("{\"a\"\uFEFF:\"x\"}"), std::nullopt);
}

TEST(JsonContract, aNulCharacterIsPartOfTheText) {
  EXPECT_EQ(jsonStringMembers(R"({"a":"x\u0000y"})"), (Members{{"a", std::string("x\0y", 3)}}));
}

TEST(JsonContract, whatIsNotAnObjectGivesNothing) {
  for (const char* text :
       {"", " ", "[]", "[{\"state\":\"x\"}]", "\"state\"", "1", "true", "null"}) {
    EXPECT_EQ(jsonStringMembers(text), std::nullopt) << text;
  }
}

TEST(JsonContract, whatIsNotJsonGivesNothing) {
  for (const char* text : {"{",
                           "}",
                           "{\"a\"}",
                           "{\"a\":}",
                           "{\"a\":\"b\"",
                           "{\"a\":\"b}",
                           "{'a':'b'}",
                           "{a:\"b\"}",
                           "{\"a\":\"b\"}x",
                           "{\"a\":\"b\"}{}",
                           "{\"a\":\"b\" \"c\":\"d\"}",
                           "{\"a\":nul}",
                           "{\"a\":\"\\x\"}",
                           "{\"a\":\"\\",
                           "{\"a\":\"\\u12\"}",
                           "{\"a\":\"x\ny\"}",
                           "{\"a\":\"x\ty\"}",
                           "{\"x\ny\":\"z\"}",
                           "{\"a\":1.}",
                           "{\"a\":.5}",
                           "{\"a\":1.e5}",
                           "{\"a\":01}",
                           "{\"a\":+1}",
                           "{\"a\":1,,}",
                           "{,}",
                           "{\"a\":[,]}",
                           "{\"a\":NaN}",
                           "{\"a\":1}//",
                           "<html>",
                           "HW-UUID-1"}) {
    EXPECT_EQ(jsonStringMembers(text), std::nullopt) << text;
  }
}

TEST(JsonContract, aPointInAStringIsNoNumber) {
  EXPECT_EQ(jsonStringMembers(R"({"a":".x. \\\".","b":-1.5,"c":[0.25,1.0e-3]})"),
            (Members{{"a", ".x. \\\"."}}));
}

TEST(JsonContract, bytesThatAreNotUtf8GiveNothing) {
  EXPECT_EQ(jsonStringMembers("{\"a\":\"\xff\xfe\"}"), std::nullopt);
  EXPECT_EQ(jsonStringMembers("{\"a\":\"\xc3\"}"), std::nullopt);
  EXPECT_EQ(jsonStringMembers("\xff\xff\xff\xff"), std::nullopt);
}

// Which of two members with the same key counts is the platform's choice.
TEST(JsonContract, oneOfTwoMembersWithTheSameKeyCounts) {
  const auto members = jsonStringMembers(R"({"a":"first","a":"second"})");
  ASSERT_TRUE(members);
  ASSERT_EQ(members->size(), 1u);
  EXPECT_TRUE(members->at("a") == "first" || members->at("a") == "second");
}

// Half a surrogate pair has no UTF-8; a platform may refuse the text or put a character for it.
TEST(JsonContract, halfASurrogatePairDoesNoHarm) {
  for (const char* text : {R"({"a":"x\ud83d","b":"y"})", R"({"a":"\ude00x","b":"y"})",
                           R"({"a":"\ud83d\ud83d","b":"y"})"}) {
    const auto members = jsonStringMembers(text);
    if (members) {
      EXPECT_EQ(members->at("b"), "y") << text;
      EXPECT_EQ(members->at("a").find('\xed'), std::string::npos) << text;
    }
  }
}

TEST(JsonContract, nestingOfHundredsOfLevelsIsRead) {
  const std::string nested = std::string(500, '[') + "1" + std::string(500, ']');
  EXPECT_EQ(jsonStringMembers("{\"a\":" + nested + ",\"b\":\"x\"}"), (Members{{"b", "x"}}));
}

TEST(JsonContract, deepNestingGivesNothing) {
  for (const std::size_t depth : {std::size_t{5'000}, std::size_t{1'000'000}}) {
    const std::string open(depth, '[');
    const std::string close(depth, ']');
    EXPECT_EQ(jsonStringMembers("{\"a\":" + open + close + "}"), std::nullopt) << depth;
    EXPECT_EQ(jsonStringMembers("{\"a\":" + open), std::nullopt) << depth;
  }
}

TEST(JsonContract, longTextsAreRead) {
  const std::string value(5'000'000, 'x');
  EXPECT_EQ(jsonStringMembers("{\"a\":\"" + value + "\"}"), (Members{{"a", value}}));
}

TEST(JsonContract, manyMembersAreRead) {
  std::string text = "{";
  for (int i = 0; i < 20'000; ++i) text += "\"key" + std::to_string(i) + "\":\"v\",";
  EXPECT_EQ(jsonStringMembers(text + "\"last\":\"x\"}"), (Members{{"last", "x"}}));
}

}  // namespace
