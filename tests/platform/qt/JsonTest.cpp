#include "platform/Json.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Json, aNumberThatNoDoubleHoldsIsNone) {
  const auto isRead = [](const std::string& number) {
    return platform::jsonStringMembers("{\"a\":" + number + "}", {"a"}).has_value();
  };
  for (const char* number : {"1e308", "-1e308", "1e-300", "0e999", "0.0e-999", "-0"}) {
    EXPECT_TRUE(isRead(number)) << number;
  }
  for (const char* number : {"1e309", "-1e309", "1e-999", "-0.5e-999", "1e-9234567890"}) {
    EXPECT_FALSE(isRead(number)) << number;
  }
}

}  // namespace
