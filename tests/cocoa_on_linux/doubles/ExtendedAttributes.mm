#include "doubles/ExtendedAttributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "runtime/Runtime.h"

namespace {

using FileNumber = std::pair<dev_t, ino_t>;
using Attributes = std::map<std::string, std::string>;

// In memory, as not every file system of Linux keeps any; by number, as they move with their file.
std::map<FileNumber, Attributes> attributesByFile;
std::mutex mutex;

enum class Access { read, write };

// 0 or an errno. Whoever may not write a file may not change its attributes either. That includes
// root here, as which tests may run.
int lookUp(const char* path, Access access, FileNumber& number) {
  struct stat info = {};
  if (lstat(path, &info) != 0) return errno;
  number = {info.st_dev, info.st_ino};
  return access == Access::write && (info.st_mode & S_IWUSR) == 0 ? EACCES : 0;
}

Attributes& attributesOf(const char* path, const FileNumber& number) {
  const auto [entry, isNew] = attributesByFile.try_emplace(number);
  // A file that is held open keeps its number to itself, even once it is removed.
  if (isNew) open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
  return entry->second;
}

int fail(int failure) {
  errno = failure;
  return -1;
}

void require(uint32_t position, int options) {
  if (position != 0 || options != XATTR_NOFOLLOW)
    runtime::violation("Unusual options for an extended attribute");
}

}  // namespace

int setxattr(const char* path, const char* name, const void* value, size_t size, uint32_t position,
             int options) {
  require(position, options);
  const std::lock_guard lock(mutex);
  FileNumber number;
  if (const int failure = lookUp(path, Access::write, number)) return fail(failure);
  attributesOf(path, number)[name].assign(static_cast<const char*>(value), size);
  return 0;
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size, uint32_t position,
                 int options) {
  require(position, options);
  if (value != nullptr || size != 0)
    runtime::violation("More than the size of an extended attribute is asked for");
  const std::lock_guard lock(mutex);
  FileNumber number;
  if (const int failure = lookUp(path, Access::read, number)) return fail(failure);
  const auto file = attributesByFile.find(number);
  if (file == attributesByFile.end() || file->second.count(name) == 0) return fail(ENODATA);
  return static_cast<ssize_t>(file->second[name].size());
}

int removexattr(const char* path, const char* name, int options) {
  require(0, options);
  const std::lock_guard lock(mutex);
  FileNumber number;
  if (const int failure = lookUp(path, Access::write, number)) return fail(failure);
  const auto file = attributesByFile.find(number);
  if (file == attributesByFile.end() || file->second.erase(name) == 0) return fail(ENODATA);
  return 0;
}

void doubles::copyExtendedAttributes(const char* from, const char* to) {
  const std::lock_guard lock(mutex);
  FileNumber source;
  FileNumber target;
  if (lookUp(from, Access::read, source) != 0 || lookUp(to, Access::read, target) != 0) return;
  const auto file = attributesByFile.find(source);
  if (file != attributesByFile.end()) attributesOf(to, target) = file->second;
}
