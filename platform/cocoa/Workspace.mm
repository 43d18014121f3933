#include "platform/Workspace.h"

#include "platform/cocoa/Conversions.h"

namespace platform::Workspace {

void openUrl(const Url& url) {
  [NSWorkspace.sharedWorkspace openURL:nsUrl(url)];
}

}  // namespace platform::Workspace
