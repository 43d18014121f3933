#pragma once

#include <string>

/// The general pasteboard. Main thread; a pasteboard that refuses is ignored.
namespace platform::GeneralPasteboard {

/// Removes what it holds, of every type.
void clearContents();

/// Puts `text` on it as plain text.
void setString(const std::string& text);

}  // namespace platform::GeneralPasteboard
