#pragma once

#include <optional>
#include <string>
#include <utility>

namespace platform {

/// A text that the platform accepts as a URL.
class Url {
 public:
  /// The URL, or none if the platform cannot parse the text; which texts those are is its own
  /// choice. Any thread; never fails.
  static std::optional<Url> withString(const std::string& text);

  const std::string& absoluteString() const { return string; }

  friend bool operator==(const Url&, const Url&) = default;

 private:
  explicit Url(std::string text) : string(std::move(text)) {}
  std::string string;
};

}  // namespace platform
