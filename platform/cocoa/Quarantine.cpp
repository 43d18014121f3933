#include "platform/cocoa/Quarantine.h"

#include <sys/xattr.h>

// `NSURLQuarantinePropertiesKey` would be Foundation's way. Set to null, it is reported to leave an
// empty mark on some systems, and to give one to a file that had none.
void platform::dropQuarantine(const std::filesystem::path& path) {
  removexattr(path.c_str(), "com.apple.quarantine", XATTR_NOFOLLOW);
}
