#include "client/StatusDecoding.h"

#include "platform/Iso8601.h"
#include "platform/Json.h"

namespace pellix {
namespace {

using platform::Iso8601Format;

std::optional<platform::Date> heartbeat(const std::string& text) {
  // Each format takes only what the other does not.
  if (const auto date = dateFromIso8601(text, Iso8601Format::internetDateTimeWithFractionalSeconds))
    return date;
  return dateFromIso8601(text, Iso8601Format::internetDateTime);
}

}  // namespace

Status decodeStatus(const std::optional<std::string>& body) {
  Status status;
  auto members = body ? platform::jsonStringMembers(
                            *body, {"state", "device_id", "site", "email", "last_heartbeat"})
                      : std::nullopt;
  if (!members) {
    status.state = TrustState::offline;
    return status;
  }
  const auto take = [&](const char* key, std::string& field) {
    if (const auto member = members->find(key); member != members->end())
      field = std::move(member->second);
  };

  status.serviceReachable = true;
  std::string state, lastHeartbeat;
  take("state", state);
  status.state = trustStateWithRawValue(state).value_or(TrustState::unknown);
  take("device_id", status.deviceId);
  take("site", status.site);
  take("email", status.email);
  take("last_heartbeat", lastHeartbeat);
  status.lastHeartbeat = heartbeat(lastHeartbeat);
  return status;
}

}  // namespace pellix
