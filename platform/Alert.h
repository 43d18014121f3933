#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"

namespace platform {

enum class AlertStyle { warning = 0, informational = 1, critical = 2 };

/// A modal alert as a value. The first button is the default one (Return, whichever control has the
/// focus); a button titled "Cancel" answers Escape.
struct Alert {
  std::string messageText = {};
  std::string informativeText = {};
  std::vector<std::string> buttons = {};  ///< titles, in the order added
  AlertStyle alertStyle = AlertStyle::warning;
  std::optional<Error> error = {};  ///< set by `withError`: the platform words the alert from it

  /// The platform's own alert for `error`: its description, and one button that dismisses it.
  static Alert withError(const Error& error) { return {.error = error}; }

  friend bool operator==(const Alert&, const Alert&) = default;
};

/// The response for the first button of an alert; the second gives one more, and so on.
inline constexpr int alertFirstButtonReturn = 1000;

/// Brings the alert to the front and waits until the user has answered it. Main thread; the main
/// queue and timers keep running meanwhile, and a command of a menu brings the alert to the front
/// instead of what it stands for. An alert closed without a button gives a response that
/// is none of its buttons, or that of its "Cancel".
int runModal(const Alert& alert);

}  // namespace platform
