// Apple's calls have other arguments than Linux's of the same names. Their C++ linkage keeps them
// apart.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#define XATTR_NOFOLLOW 0x0001

int setxattr(const char* path, const char* name, const void* value, size_t size, uint32_t position,
             int options);
ssize_t getxattr(const char* path, const char* name, void* value, size_t size, uint32_t position,
                 int options);
int removexattr(const char* path, const char* name, int options);
