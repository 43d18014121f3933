#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

namespace {

namespace UserDefaults = platform::UserDefaults;

TEST(UserDefaultsContract, whatIsMissingIsZeroAndFalse) {
  EXPECT_EQ(UserDefaults::integerForKey("contract_missing"), 0);
  EXPECT_FALSE(UserDefaults::boolForKey("contract_missing"));
}

TEST(UserDefaultsContract, aBooleanIsKept) {
  for (const bool value : {true, false, true}) {
    UserDefaults::setBool(value, "contract_bool");
    EXPECT_EQ(UserDefaults::boolForKey("contract_bool"), value);
  }
  UserDefaults::setBool(false, "contract_bool");
}

}  // namespace
