// The doubles of Foundation do what Apple's classes do, where that is more or less than one would
// think; without these tests the rest would be tested against wishes.
#include <gtest/gtest-spi.h>

#include <string>

#include "Machine.h"

namespace {

using namespace std::string_literals;

class DoublesTest : public Machine {};

// Seconds since 1970, or none.
std::optional<double> date(NSString* string, bool hasFraction = false) {
  NSISO8601DateFormatter* formatter = [[NSISO8601DateFormatter alloc] init];
  if (hasFraction)
    formatter.formatOptions =
        NSISO8601DateFormatWithInternetDateTime | NSISO8601DateFormatWithFractionalSeconds;
  NSDate* read = [formatter dateFromString:string];
  if (read == nil) return {};
  return read.timeIntervalSince1970;
}

constexpr double mayFirst = 1714566896;  // 2024-05-01T12:34:56Z

TEST_F(DoublesTest, theFormatterReadsWhatItsFormatSpells) {
  EXPECT_EQ(date(@"2024-05-01T12:34:56Z"), mayFirst);
  EXPECT_EQ(date(@"2024-05-01T12:34:56.75+02:00", true), mayFirst + 0.75 - 7200);
  EXPECT_EQ(date(@"2024-05-01T12:34:56.75Z"), std::nullopt);
  EXPECT_EQ(date(@"2024-05-01T12:34:56Z", true), std::nullopt);
}

TEST_F(DoublesTest, theFormatterReadsMoreThanThat) {
  for (NSString* text :
       {@"2024-05-01T12:34:56Z and more", @" 2024-05-01T12:34:56Z", @"2024-05-01T14:34:56+0200",
        @"2024-05-01T14:34:56+02", @"2024-05-01T14:34:56GMT+2", @"٢٠٢٤-٠٥-٠١T١٢:٣٤:٥٦Z",
        @"12024-05-01T12:34:56Z"})
    EXPECT_EQ(date(text), mayFirst) << text.UTF8String;
  EXPECT_EQ(date(@"22024-01-01T00:00:00Z"), 632843107200);
}

TEST_F(DoublesTest, theFormatterKnowsNoYearZeroAndTheJulianCalendar) {
  EXPECT_EQ(date(@"0000-01-01T00:00:00Z"), std::nullopt);
  EXPECT_EQ(date(@"0001-01-01T00:00:00Z"), -62135596800 - 2 * 86400);
  EXPECT_EQ(date(@"1500-02-29T00:00:00Z"), date(@"1500-03-10T00:00:00Z").value() - 10 * 86400);
}

TEST_F(DoublesTest, theFormatterLooksAtTheFront) {
  NSString* blanks = [@"" stringByPaddingToLength:1004 withString:@" " startingAtIndex:0];
  EXPECT_EQ(date([blanks stringByAppendingString:@"2024-05-01T12:34:56Z"]), mayFirst);
  EXPECT_EQ(date([blanks stringByAppendingString:@" 2024-05-01T12:34:56Z"]), std::nullopt);
}

TEST_F(DoublesTest, theFormatterReadsMilliseconds) {
  EXPECT_NEAR(date(@"1970-01-01T00:00:00.123999Z", true).value(), 0.123, 1e-6);
  EXPECT_NEAR(date(@"1970-01-01T00:00:00.9999999999Z", true).value(), 0.141, 1e-6);  // overflown
}

NSString* withDigits(NSUInteger digits) {
  NSString* second = @"1970-01-01T00:00:00.";
  NSString* withoutZone = [second stringByPaddingToLength:second.length + digits
                                               withString:@"0"
                                          startingAtIndex:0];
  return [withoutZone stringByAppendingString:@"Z"];
}

TEST_F(DoublesTest, aFractionThatEndsTheProcessFails) {
  EXPECT_EQ(date(withDigits(34), true), 0);
  EXPECT_EQ(date(withDigits(35)), std::nullopt);
  EXPECT_NONFATAL_FAILURE(date(withDigits(35), true), "ends the process");
}

// What was read, in the reader's own words, or "nil".
std::string json(const std::string& bytes) {
  NSError* error = nil;
  const id read = [NSJSONSerialization JSONObjectWithData:[NSData dataWithBytes:bytes.data()
                                                                         length:bytes.size()]
                                                  options:0
                                                    error:&error];
  EXPECT_EQ(read == nil, error != nil);
  if (read == nil) return "nil";
  NSDictionary* object = [read isKindOfClass:NSArray.class] ? @{@"a" : read} : read;
  const id member = object[@"a"];
  return text([member isKindOfClass:NSString.class] ? member : [member description]);
}

TEST_F(DoublesTest, jsonMayBeNestedIn512Levels) {
  const auto nested = [](std::size_t levels, const std::string& inside) {
    return std::string(levels, '[') + inside + std::string(levels, ']');
  };
  EXPECT_NE(json(nested(512, "1")), "nil");
  EXPECT_EQ(json(nested(513, "")), "nil");
  EXPECT_EQ(json("{\"a\":" + nested(512, "") + "}"), "nil");
}

TEST_F(DoublesTest, jsonHasNoSurrogateWithoutItsPartner) {
  EXPECT_EQ(json(R"({"a":"\ud83d\ude00"})"), "😀");
  for (const char* text : {R"({"a":"\ud83d"})", R"({"a":"\ude00"})", R"({"a":"\ud83d\u0061"})"})
    EXPECT_EQ(json(text), "nil") << text;
}

TEST_F(DoublesTest, jsonMayEndAListWithAComma) {
  EXPECT_EQ(json(R"({"a":"b",})"), "b");
  EXPECT_NE(json(R"(["a",])"), "nil");
  for (const char* text : {"{,}", "[,]", R"(["a",,])", R"({"a":"b",,})"})
    EXPECT_EQ(json(text), "nil") << text;
}

TEST_F(DoublesTest, jsonMayBeUtf16OrUtf32) {
  const std::string object = R"({"a":"x"})";
  const auto widened = [&](std::size_t before, std::size_t after) {
    std::string wide;
    for (const char c : object) wide += std::string(before, '\0') + c + std::string(after, '\0');
    return wide;
  };
  for (const auto& [wide, mark] :
       {std::pair{widened(0, 0), "\xEF\xBB\xBF"s}, std::pair{widened(0, 1), "\xFF\xFE"s},
        std::pair{widened(1, 0), "\xFE\xFF"s}, std::pair{widened(0, 3), "\xFF\xFE\0\0"s},
        std::pair{widened(3, 0), "\0\0\xFE\xFF"s}}) {
    EXPECT_EQ(json(wide), "x") << wide;
    EXPECT_EQ(json(mark + wide), "x") << wide;
  }
}

TEST_F(DoublesTest, jsonLosesAByteOrderMarkAtTheStartOfAText) {
  EXPECT_EQ(json("{\"a\":\"\uFEFFx\"}"), "x");
  EXPECT_EQ(json(R"({"a":"\ufeffx"})"), "\uFEFFx");
  EXPECT_EQ(json("{\"a\":\"x\uFEFF\"}"), "x\uFEFF");
}

TEST_F(DoublesTest, aCopyOfAProgramOfTheSystemsIsKilled) {
  static NSTask* task;
  std::filesystem::copy_file("/bin/echo", home / "echo");
  task = [[NSTask alloc] init];
  task.executableURL =
      [NSURL fileURLWithPath:[NSString stringWithUTF8String:(home / "echo").c_str()]];
  task.arguments = @[];
  EXPECT_NONFATAL_FAILURE([task launchAndReturnError:nil], "is killed");
  [task waitUntilExit];
  task = nil;
}

TEST_F(DoublesTest, aUrlMayHaveAnyPort) {
  for (NSString* text : {@"http://127.0.0.1:99999/", @"http://127.0.0.1:-1/",
                         @"http://127.0.0.1:port/", @"http://127.0.0.1:/"})
    EXPECT_EQ(::text([NSURL URLWithString:text].absoluteString), text.UTF8String);
  for (NSString* text : {@"http://127.0.0.1/a b", @"http://a b/", @"http://127.0.0.1/<b>"})
    EXPECT_TRUE([NSURL URLWithString:text] == nil) << text.UTF8String;
}

}  // namespace
