#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

#include "Defaults.h"

namespace {

namespace UserDefaults = platform::UserDefaults;

/// Nothing stays behind in the preferences of whoever runs the tests.
class UserDefaultsContract : public testing::Test {
 protected:
  ~UserDefaultsContract() override {
    removeDefaults();
    EXPECT_FALSE(UserDefaults::boolForKey("contract_bool"));
  }
};

TEST_F(UserDefaultsContract, whatIsMissingIsZeroAndFalse) {
  EXPECT_EQ(UserDefaults::integerForKey("contract_missing"), 0);
  EXPECT_FALSE(UserDefaults::boolForKey("contract_missing"));
}

TEST_F(UserDefaultsContract, aBooleanIsKept) {
  for (const bool value : {true, false, true}) {
    UserDefaults::setBool(value, "contract_bool");
    EXPECT_EQ(UserDefaults::boolForKey("contract_bool"), value);
  }
}

}  // namespace
