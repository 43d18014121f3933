#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Slow and plain second opinions, written without a look at the product's own code paths.
namespace fuzz {

/// The code points of well-formed UTF-8, or none.
std::optional<std::u32string> codePoints(std::string_view bytes);

std::string utf8(std::u32string_view text);

/// Whether `bytes` are one JSON object, perhaps after a byte-order mark: RFC 8259, and at most 1024
/// levels deep, where the platform's parser gives up.
bool isJsonObject(std::string_view bytes);

}  // namespace fuzz
