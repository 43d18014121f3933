#include "client/ServiceClient.h"

#include <utility>

#include "client/StatusDecoding.h"

namespace pellix {

namespace {
constexpr double timeoutIntervalForRequest = 4.0;  // seconds
}

ServiceClient::ServiceClient(std::int64_t servicePort)
    : port(servicePort), session(timeoutIntervalForRequest) {}

std::string ServiceClient::baseURL() const {
  return "http://127.0.0.1:" + std::to_string(port);
}

void ServiceClient::fetchStatus(std::function<void(Status)> completion) {
  const auto url = platform::Url::withString(baseURL() + "/status.json");
  if (!url) return completion(Status());
  session.dataTaskWithUrl(
      *url, [completion = std::move(completion)](const std::optional<std::string>& body) {
        completion(decodeStatus(body));
      });
}

}  // namespace pellix
