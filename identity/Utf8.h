#pragma once

#include <string_view>

namespace pellix {

/// Whether `bytes` are well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);

/// `text` without the horizontal tabs and space separators (Unicode category Zs) at both its ends.
/// Line feeds and carriage returns are not among them. `text` is valid UTF-8.
std::string_view trimmedOfBlanks(std::string_view text);

}  // namespace pellix
