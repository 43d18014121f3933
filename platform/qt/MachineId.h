#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The platform UUID that the content of /etc/machine-id stands for: upper-case, grouped
/// 8-4-4-4-12. None unless it is exactly 32 hexadecimal digits, not all zero, with or without a
/// final newline.
inline std::optional<std::string> uuidFromMachineId(std::string_view content) {
  if (content.ends_with('\n')) content.remove_suffix(1);
  if (content.size() != 32 || std::ranges::all_of(content, [](char c) { return c == '0'; })) {
    return {};
  }
  std::string uuid;
  for (std::size_t i = 0; i < content.size(); ++i) {
    const char c = content[i];
    const bool isSmallLetter = c >= 'a' && c <= 'f';
    if (!isSmallLetter && !(c >= '0' && c <= '9') && !(c >= 'A' && c <= 'F')) return {};
    if (i == 8 || i == 12 || i == 16 || i == 20) uuid += '-';
    uuid += isSmallLetter ? static_cast<char>(c - 'a' + 'A') : c;
  }
  return uuid;
}

}  // namespace platform
