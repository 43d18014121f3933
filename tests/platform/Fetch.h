#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/UrlSession.h"

/// The body that one request will give. A second call of its handler throws.
inline std::future<std::optional<std::string>> startFetch(platform::UrlSession& session,
                                                          const std::string& url) {
  auto promise = std::make_shared<std::promise<std::optional<std::string>>>();
  auto future = promise->get_future();
  session.dataTaskWithUrl(
      platform::Url::withString(url).value(),
      [promise](std::optional<std::string> body) { promise->set_value(std::move(body)); });
  return future;
}

/// The body of one request, which must have ended within a time that is ample.
inline std::optional<std::string> fetch(platform::UrlSession& session, const std::string& url) {
  auto body = startFetch(session, url);
  if (body.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    throw std::runtime_error("the completion handler was never called");
  }
  return body.get();
}
