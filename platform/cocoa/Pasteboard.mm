#include "platform/Pasteboard.h"

#include "platform/cocoa/Conversions.h"

namespace platform::GeneralPasteboard {

void clearContents() {
  [NSPasteboard.generalPasteboard clearContents];
}

void setString(const std::string& text) {
  [NSPasteboard.generalPasteboard setString:nsString(text) forType:NSPasteboardTypeString];
}

}  // namespace platform::GeneralPasteboard
