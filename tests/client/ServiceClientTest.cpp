#include "client/ServiceClient.h"

#include <thread>
#include <vector>

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::platform;
using ServiceClientTest = fakes::PlatformTest;

TEST_F(ServiceClientTest, baseUrlIsTheLiteralLoopbackAddressWithoutASlash) {
  EXPECT_EQ(ServiceClient(8787).baseURL(), "http://127.0.0.1:8787");
  EXPECT_EQ(ServiceClient(1).baseURL(), "http://127.0.0.1:1");
}

TEST_F(ServiceClientTest, requestsTimeOutAfterFourSeconds) {
  const ServiceClient client(8787);
  EXPECT_EQ(platform().requestTimeout, 4.0);
}

TEST_F(ServiceClientTest, oneGetPerFetchAndNoCompletionBeforeTheAnswer) {
  ServiceClient client(9000);
  std::vector<Status> answers;
  client.fetchStatus([&](const Status& status) { answers.push_back(status); });
  ASSERT_EQ(platform().requests.size(), 1u);
  EXPECT_EQ(platform().requests[0].url, "http://127.0.0.1:9000/status.json");
  EXPECT_TRUE(answers.empty());

  platform().answer(0, R"({"state":"authorized","device_id":"id"})");
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].state, TrustState::authorized);
  EXPECT_EQ(answers[0].deviceId, "id");
  EXPECT_TRUE(answers[0].serviceReachable);
}

TEST_F(ServiceClientTest, noBodyIsOffline) {
  ServiceClient client(8787);
  std::vector<Status> answers;
  client.fetchStatus([&](const Status& status) { answers.push_back(status); });
  platform().answer(0, std::nullopt);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].state, TrustState::offline);
  EXPECT_FALSE(answers[0].serviceReachable);
}

TEST_F(ServiceClientTest, unparsableAddressAnswersAtOnceWithTheDefaults) {
  const std::pair<std::int64_t, const char*> rows[] = {
      {-1, "http://127.0.0.1:-1/status.json"},
      {70000, "http://127.0.0.1:70000/status.json"},
      {INT64_MAX, "http://127.0.0.1:9223372036854775807/status.json"}};
  for (const auto& [port, address] : rows) {
    platform().unparsableUrls = {address};
    ServiceClient client(port);
    std::vector<Status> answers;
    std::thread::id thread;
    client.fetchStatus([&](const Status& status) {
      answers.push_back(status);
      thread = std::this_thread::get_id();
    });
    ASSERT_EQ(answers.size(), 1u) << port;
    EXPECT_EQ(thread, std::this_thread::get_id());
    EXPECT_EQ(answers[0].state, TrustState::unknown);
    EXPECT_FALSE(answers[0].serviceReachable);
    EXPECT_EQ(answers[0].deviceId, "—");
  }
  EXPECT_TRUE(platform().requests.empty());
}

TEST_F(ServiceClientTest, requestsAreIndependentAndMayEndInAnyOrder) {
  ServiceClient client(8787);
  std::vector<std::string> answers;
  for (const char* name : {"first ", "second "})
    client.fetchStatus([&answers, name](const Status& status) {
      answers.push_back(name + rawValue(status.state));
    });
  platform().answer(1, R"({"state":"revoked"})");
  platform().answer(0, R"({"state":"stale"})");
  EXPECT_EQ(answers, (std::vector<std::string>{"second revoked", "first stale"}));
}

}  // namespace
}  // namespace pellix
