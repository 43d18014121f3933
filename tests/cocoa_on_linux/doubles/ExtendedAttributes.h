#pragma once

namespace doubles {

/// Gives the new file `to` those of `from`. Any thread, as the calls of `sys/xattr.h`.
void copyExtendedAttributes(const char* from, const char* to);

}  // namespace doubles
