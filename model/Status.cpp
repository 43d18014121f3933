#include "model/Status.h"

#include <cstdint>

#include "model/FatalError.h"

namespace pellix {
namespace {

// Truncates toward zero. A date that far off cannot come from a sane service, so there is no
// clamping.
std::int64_t wholeSeconds(double interval) {
  // The bounds are the doubles just outside the 64-bit range; no NaN passes the comparison.
  if (!(interval > -9223372036854777856.0 && interval < 9223372036854775808.0))
    fatalError("The age of the last heartbeat does not fit a 64-bit number of seconds");
  return static_cast<std::int64_t>(interval);
}

}  // namespace

std::string Status::lastCheckDescription(platform::Date now) const {
  if (!lastHeartbeat) return "never";
  const std::int64_t s = wholeSeconds((now - *lastHeartbeat).count());
  // A future heartbeat is a clock that runs ahead, which is no concern of the user.
  if (s < 60) return "just now";
  if (s < 3600) return std::to_string(s / 60) + " min ago";
  if (s < 86400) return std::to_string(s / 3600) + " h ago";
  return std::to_string(s / 86400) + " d ago";
}

}  // namespace pellix
