#include "platform/cocoa/FileSystem.h"

#include <sys/stdio.h>
#include <sys/xattr.h>

#include <cerrno>

namespace platform {

// `NSURLQuarantinePropertiesKey` would be Foundation's way. Set to null, it is reported to leave an
// empty mark on some systems, and to give one to a file that had none.
void dropQuarantine(const std::filesystem::path& path) {
  removexattr(path.c_str(), "com.apple.quarantine", XATTR_NOFOLLOW);
}

// The file manager's move looks first, and replaces what has come in between.
int renameExclusively(const std::filesystem::path& from, const std::filesystem::path& to) {
  return renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0 ? 0 : errno;
}

}  // namespace platform
