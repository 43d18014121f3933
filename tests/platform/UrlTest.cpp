#include "platform/Url.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using platform::Url;

TEST(UrlContract, keepsTheTextAsItIs) {
  for (const char* text :
       {"http://127.0.0.1:8787/status.json", "http://127.0.0.1:8787/", "http://127.0.0.1:1",
        "http://127.0.0.1:65535/authorize", "http://127.0.0.1:8787//", "http://[::1]:8787/a?b=c#d",
        "HTTP://LOCALHOST/%41", "http://127.0.0.1:08787/"}) {
    const auto url = Url::withString(text);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->absoluteString(), text);
  }
}

TEST(UrlContract, urlsOfTheSameTextAreEqual) {
  EXPECT_EQ(Url::withString("http://127.0.0.1:1/"), Url::withString("http://127.0.0.1:1/"));
  EXPECT_NE(Url::withString("http://127.0.0.1:1/"), Url::withString("http://127.0.0.1:2/"));
}

}  // namespace
