#pragma once

#include <optional>
#include <string>

#include "model/Status.h"

namespace pellix {

/// The status that the service's answer stands for: `offline` and not reachable without a body or
/// for one that is not a JSON object; otherwise reachable, each member that is missing or no string
/// at its default. Any thread; never fails.
Status decodeStatus(const std::optional<std::string>& body);

}  // namespace pellix
