#include "platform/Url.h"

#include <gtest/gtest.h>

namespace {

TEST(Url, aPortOutOfRangeGivesNothing) {
  for (const char* port : {"-1", "65536", "70000", "2147483648", "4294967297",
                           "9223372036854775807", "-9223372036854775808", "+1", "1x", "1 "}) {
    const std::string text = "http://127.0.0.1:" + std::string(port) + "/status.json";
    EXPECT_EQ(platform::Url::withString(text), std::nullopt) << text;
  }
}

TEST(Url, whatIsNoUrlGivesNothing) {
  for (const char* text : {"", "http://127.0.0.1:port/", "http://[::1/", "http://127.0.0.1:-/"}) {
    EXPECT_EQ(platform::Url::withString(text), std::nullopt) << text;
  }
}

TEST(Url, blanksAndControlCharactersGiveNothing) {
  for (const char* text : {"http://127.0.0.1/a b", "http://127.0.0.1/a\nb", "http://127.0.0.1/%",
                           "http://a b/", "http://127.0.0.1/\x7f", "http://127.0.0.1/<b>"}) {
    EXPECT_EQ(platform::Url::withString(text), std::nullopt) << text;
  }
}

}  // namespace
