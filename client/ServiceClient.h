#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "model/Status.h"
#include "platform/UrlSession.h"

namespace pellix {

/// The only connection to the local service. Made on the main thread.
class ServiceClient {
 public:
  explicit ServiceClient(std::int64_t port);

  /// The address of the service, without a slash at the end. The host is a literal address, so that
  /// no name is ever resolved.
  std::string baseURL() const;

  /// Asks the service for its status once and returns at once; requests under way do not affect
  /// each other. `completion` is called exactly once: on the session's own thread, or, if the
  /// address cannot be parsed, at once on the caller's. Nothing is an error: what fails is in the
  /// status.
  void fetchStatus(std::function<void(Status)> completion);

 private:
  std::int64_t port;
  platform::UrlSession session;
};

}  // namespace pellix
