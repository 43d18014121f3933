#pragma once

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace platform {

/// What a file or process operation throws. A copy shares the platform's own error object, so that
/// an alert can show it unchanged.
class Error : public std::exception {
 public:
  Error(std::string errorDomain, long errorCode, std::string localizedDescription,
        std::shared_ptr<const void> nativeError = nullptr)
      : domain(std::move(errorDomain)),
        code(errorCode),
        description(std::move(localizedDescription)),
        native(std::move(nativeError)) {}

  const char* what() const noexcept override { return description.c_str(); }

  std::string domain;
  long code;
  std::string description;             ///< localised, for the user
  std::shared_ptr<const void> native;  ///< the platform's error object, or null

  friend bool operator==(const Error& a, const Error& b) {
    return a.domain == b.domain && a.code == b.code && a.description == b.description;
  }
};

}  // namespace platform
