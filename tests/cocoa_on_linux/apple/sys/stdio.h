// Apple's renaming with options, which Linux has under another name.
#pragma once

#define RENAME_EXCL 0x00000004

int renamex_np(const char* from, const char* to, unsigned int flags);
