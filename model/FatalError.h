#pragma once

#include <string_view>

namespace pellix {

/// Stops the process after writing "Fatal error: `message`" to standard error. For what cannot come
/// from a sane machine or service, or is a mistake in this program.
[[noreturn]] void fatalError(std::string_view message);

}  // namespace pellix
