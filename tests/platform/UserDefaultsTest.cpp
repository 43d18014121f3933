#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

#include "Defaults.h"

namespace {

namespace UserDefaults = platform::UserDefaults;

TEST(UserDefaultsContract, whatIsMissingIsZeroAndFalse) {
  EXPECT_EQ(UserDefaults::integerForKey("contract_missing"), 0);
  EXPECT_FALSE(UserDefaults::boolForKey("contract_missing"));
}

// It must not stay in the preferences of whoever runs the tests.
TEST(UserDefaultsContract, aBooleanIsKept) {
  for (const bool value : {true, false, true}) {
    UserDefaults::setBool(value, "contract_bool");
    EXPECT_EQ(UserDefaults::boolForKey("contract_bool"), value);
  }
  removeDefaults();
  EXPECT_FALSE(UserDefaults::boolForKey("contract_bool"));
}

}  // namespace
