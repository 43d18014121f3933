#pragma once

#include <optional>
#include <string>

namespace platform {

/// The machine's platform UUID exactly as the system spells it, or none. Any thread; never fails.
std::optional<std::string> platformUuid();

}  // namespace platform
