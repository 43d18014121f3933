#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pellix::Installer {

/// The string by which IT recognises this machine: the installed service's answer, else one made
/// from the hardware, else the placeholder. Blocks until the service binary has exited, however
/// long that takes. Any thread; never fails; asks anew on every call.
std::string deviceIdentifier();

/// The identifier in what the service binary printed: the "device_id" of a JSON object as it
/// stands, else the first line that, trimmed of blanks, begins with a known prefix; or none.
std::optional<std::string> deviceIdentifierInOutput(std::string_view output);

}  // namespace pellix::Installer
