#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "model/TrustState.h"
#include "platform/Iso8601.h"

namespace pellix {

/// What is shown, and copied, for a value that is not known. A device ID equal to it is no ID.
inline constexpr std::string_view placeholder = "—";

/// One snapshot of the device's trust, the outcome of one poll: every member that
/// docs/service-contract.md names, shown or not. A plain value.
struct Status {
  TrustState state = TrustState::unknown;
  std::string deviceId = std::string(placeholder);   ///< as the service reports it
  std::string site = std::string(placeholder);       ///< the managing site, not shown
  std::string email = std::string(placeholder);      ///< goes with the enrolment, not shown
  std::optional<platform::Date> lastHeartbeat = {};  ///< when the service last heard from the site
  bool serviceReachable = false;                     ///< the local service answered with an object

  /// How long ago the last heartbeat was at `now`: "never", "just now" (also for one in the
  /// future), "5 min ago", "2 h ago", "3 d ago". Stops the process if that many seconds are not a
  /// signed 64-bit number.
  std::string lastCheckDescription(platform::Date now = std::chrono::system_clock::now()) const;
};

}  // namespace pellix
