#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Url.h"

namespace platform {

/// Fetches over HTTP and keeps nothing on disk: no cookies, no cache, no credentials.
class UrlSession {
 public:
  /// Takes the response body, or none after any failure of the transport: no connection, time-out,
  /// fewer bytes than Content-Length says. Whether a missing last chunk is noticed is the
  /// platform's business. An answer of any HTTP status is an answer.
  using CompletionHandler = std::function<void(std::optional<std::string> body)>;

  /// A session whose requests fail after `timeoutIntervalForRequest` seconds without a byte
  /// arriving. Main thread.
  explicit UrlSession(double timeoutIntervalForRequest);
  /// Ends the requests under way; their handlers are called without a body, now or soon. Must not
  /// be called from one of them.
  ~UrlSession();
  UrlSession(const UrlSession&) = delete;
  UrlSession& operator=(const UrlSession&) = delete;

  /// Starts one plain GET and returns at once. Any thread. The handler is called exactly once, off
  /// the main thread and one at a time. Requests are independent and may end in any order.
  /// Redirects are followed, and large bodies taken, as far as the platform allows. Without a
  /// thread to be had, the handler may be called before this returns.
  void dataTaskWithUrl(const Url& url, CompletionHandler completionHandler);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation;
};

}  // namespace platform
