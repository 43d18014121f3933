#pragma once

#include <optional>
#include <string>

namespace platform {

/// A system symbol image as a value; whoever shows it draws it.
struct Image {
  std::string systemSymbolName;
  std::string accessibilityDescription;
  /// A template image is drawn in the colour of its surroundings, any other in its own: black, as
  /// far as a symbol has none.
  bool isTemplate = false;

  /// The image, or none if this system has no symbol of that name. Main thread.
  static std::optional<Image> withSystemSymbolName(const std::string& name,
                                                   const std::string& accessibilityDescription);

  friend bool operator==(const Image&, const Image&) = default;
};

}  // namespace platform
