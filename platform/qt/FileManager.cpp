#include "platform/FileManager.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/Error.h"
#include "platform/qt/Descriptor.h"

namespace platform::FileManager {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void throwErrno(int error = errno) {
  throw std::system_error(error, std::generic_category());
}

int check(int result) {
  if (result == -1) throwErrno();
  return result;
}

/// Does `operation`; what goes wrong in it becomes an error that begins with `sentence`.
template <typename Operation>
void describing(const std::string& sentence, Operation operation) {
  try {
    operation();
  } catch (const std::system_error& error) {
    const std::error_code& code = error.code();
    throw Error(code.category().name(), code.value(), sentence + ": " + code.message() + ".");
  }
}

std::string quoted(const fs::path& path) {
  return "“" + path.native() + "”";
}

void write(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      throwErrno();
    }
  }
}

/// Sends the bytes on their way to the disk without waiting until they are there, which takes as
/// long as the disk is busy. File systems that allocate late would otherwise let the new name reach
/// the disk well before the bytes, and a power cut in between would leave an empty file.
void startWritingBack(int file) {
  if (::sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE) == -1) check(::fdatasync(file));
  check(::close(check(::dup(file))));  // at which a file system on the network tells of a full disk
}

void copyBytes(int from, int to) {
  std::array<char, 1U << 14U> buffer;
  while (true) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count == 0) return;
    if (count > 0) {
      write(to, {buffer.data(), static_cast<std::size_t>(count)});
    } else if (errno != EINTR) {
      throwErrno();
    }
  }
}

/// The hidden file beside `target` under which a new version of it is written. One name for all
/// writers, so that what a killed one left behind is found and removed by the next.
fs::path siblingOf(const fs::path& target) {
  constexpr std::size_t longest = 255 - std::string_view("..new").size();
  std::string name = target.filename().native();
  if (name.size() > longest) {
    std::array<char, 20> hash;
    std::snprintf(hash.data(), hash.size(), "%zx", std::hash<std::string>()(name));
    name = hash.data();
  }
  return target.parent_path() / ("." + name + ".new");
}

/// An empty file under the sibling's name, locked by its writer. It goes with this object unless it
/// was moved.
class Sibling {
 public:
  explicit Sibling(const fs::path& target) : path(siblingOf(target)), file(openLocked(path)) {}
  ~Sibling() {
    if (!isMoved) ::unlink(path.c_str());
  }
  Sibling(const Sibling&) = delete;
  Sibling& operator=(const Sibling&) = delete;

  int descriptor() const { return file.get(); }

  void moveTo(const fs::path& target) {
    check(::rename(path.c_str(), target.c_str()));
    isMoved = true;
  }

  const fs::path path;

 private:
  static Descriptor openLocked(const fs::path& path) {
    using namespace std::chrono_literals;
    for (int attempt = 0; attempt < 500; ++attempt) {
      Descriptor file(
          ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
      if (!file.isOpen()) {
        const int reason = errno;
        const bool isInTheWay = reason == EACCES || reason == ELOOP || reason == ENXIO ||
                                reason == ETXTBSY;  // another's, a link, a pipe, a running program
        if (!isInTheWay || ::unlink(path.c_str()) == -1) throwErrno(reason);
        continue;
      }
      // Any other failure: not every file system has locks, and most writers are alone.
      if (::flock(file.get(), LOCK_EX | LOCK_NB) == -1 && errno == EWOULDBLOCK) {
        std::this_thread::sleep_for(10ms);
        continue;
      }
      // Until the lock was ours, another writer may have moved the file to its target.
      struct stat opened;
      struct stat named;
      check(::fstat(file.get(), &opened));
      if (::lstat(path.c_str(), &named) == -1 || opened.st_ino != named.st_ino) continue;
      if (S_ISREG(opened.st_mode) && opened.st_size == 0 && opened.st_nlink == 1) return file;
      check(::unlink(path.c_str()));  // a killed writer's, or no file at all
    }
    throwErrno(EWOULDBLOCK);
  }

  const Descriptor file;
  bool isMoved = false;
};

std::optional<fs::path> homeDirectory() {
  if (const char* const home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;
  std::array<char, 1U << 14U> buffer;
  passwd entry;
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  if (found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] != '/') return {};
  return found->pw_dir;
}

}  // namespace

fs::path homeDirectoryForCurrentUser() {
  return homeDirectory().value_or("/");
}

std::vector<fs::path> applicationSupportDirectories() {
  const auto home = homeDirectory();
  if (!home) return {};
  return {*home / "Library" / "Application Support"};
}

bool fileExists(const fs::path& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

void createDirectoryWithIntermediateDirectories(const fs::path& path) {
  describing("The folder " + quoted(path) + " couldn’t be created",
             [&] { fs::create_directories(path); });
}

void removeItem(const fs::path& path) {
  describing(quoted(path) + " couldn’t be removed", [&] {
    // With a slash at its end, the name of a link would stand for the folder it leads to.
    if (fs::remove_all(path.has_filename() ? path : path.parent_path()) == 0) throwErrno(ENOENT);
  });
}

void copyItem(const fs::path& from, const fs::path& to) {
  describing("The file " + quoted(from) + " couldn’t be copied to " + quoted(to), [&] {
    // Without waiting, should it be a named pipe.
    const Descriptor source(check(::open(from.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
    struct stat info;
    check(::fstat(source.get(), &info));
    if (!S_ISREG(info.st_mode)) throwErrno(S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
    // Set-user-ID bits would act for another owner.
    const mode_t permissions = info.st_mode & 0777;

    const auto copyAndLink = [&](int copy, const fs::path& name) {
      copyBytes(source.get(), copy);
      check(::fchmod(copy, permissions));
      startWritingBack(copy);
      check(::linkat(AT_FDCWD, name.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW));
    };
    // A file without a name until it is complete: nothing is left of it should we be killed.
    const fs::path folder = to.has_parent_path() ? to.parent_path() : ".";
    const Descriptor unnamed(::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (unnamed.isOpen()) {
      copyAndLink(unnamed.get(), "/proc/self/fd/" + std::to_string(unnamed.get()));
    } else {  // not every file system has such files
      const Sibling sibling(to);
      copyAndLink(sibling.descriptor(), sibling.path);
    }
  });
}

void setPosixPermissions(const fs::path& path, unsigned permissions) {
  describing("The permissions of " + quoted(path) + " couldn’t be changed",
             [&] { check(::chmod(path.c_str(), permissions)); });
}

void writeAtomically(std::string_view text, const fs::path& path) {
  describing("The file " + quoted(path) + " couldn’t be written", [&] {
    Sibling sibling(path);
    write(sibling.descriptor(), text);
    startWritingBack(sibling.descriptor());
    sibling.moveTo(path);
  });
}

}  // namespace platform::FileManager
