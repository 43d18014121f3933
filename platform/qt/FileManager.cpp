#include "platform/FileManager.h"

#include <pwd.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QTemporaryFile>
#include <system_error>

#include "platform/Error.h"
#include "platform/qt/Conversions.h"

namespace platform::FileManager {
namespace {

namespace fs = std::filesystem;

std::string quoted(const fs::path& path) {
  return "“" + path.native() + "”";
}

Error error(const std::string& sentence, const std::error_code& code) {
  return {code.category().name(), code.value(), sentence + ": " + code.message() + "."};
}

Error error(const std::string& sentence, const QFileDevice& file) {
  return {"QFileDevice", file.error(), sentence + ": " + fromQString(file.errorString()) + "."};
}

/// The names of temporary files in the same folder.
QString beside(const fs::path& path) {
  return toQString((path.parent_path() / ".XXXXXX").native());
}

/// A disk that fills up takes a part, and fails what is written after that.
bool writeAll(QFileDevice& file, QByteArrayView bytes) {
  while (!bytes.isEmpty()) {
    const qint64 count = file.write(bytes.data(), bytes.size());
    if (count == -1) return false;
    bytes = bytes.sliced(count);
  }
  return file.flush();
}

/// In parts, so that a large file takes no more memory. Whether all that was read was written.
bool copyAll(QFileDevice& from, QFileDevice& to) {
  constexpr qint64 part = 1 << 20;
  while (true) {
    const QByteArray bytes = from.read(part);
    if (bytes.isEmpty()) return true;
    if (!writeAll(to, bytes)) return false;
  }
}

}  // namespace

fs::path homeDirectoryForCurrentUser() {
  // Without one in the environment, Qt takes the root folder for it.
  if (qEnvironmentVariableIsEmpty("HOME")) {
    if (const passwd* const account = ::getpwuid(::getuid())) return account->pw_dir;
  }
  return fromQString(QDir::homePath());
}

std::vector<fs::path> applicationSupportDirectories() {
  return {homeDirectoryForCurrentUser() / "Library" / "Application Support"};
}

bool fileExists(const fs::path& path) {
  std::error_code reason;
  return fs::exists(path, reason);
}

void createDirectoryWithIntermediateDirectories(const fs::path& path) {
  std::error_code reason;
  fs::create_directories(path, reason);
  if (reason) throw error("The folder " + quoted(path) + " couldn’t be created", reason);
}

void removeItem(const fs::path& path) {
  // With a slash at its end, the name of a link would stand for the folder it leads to.
  std::error_code reason;
  const auto count = fs::remove_all(path.has_filename() ? path : path.parent_path(), reason);
  if (count == 0) reason = std::make_error_code(std::errc::no_such_file_or_directory);
  if (reason) throw error(quoted(path) + " couldn’t be removed", reason);
}

void copyItem(const fs::path& from, const fs::path& to) {
  const std::string sentence = "The file " + quoted(from) + " couldn’t be copied to " + quoted(to);
  std::error_code reason;
  const fs::file_status status = fs::status(from, reason);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    reason = std::make_error_code(std::errc::invalid_argument);
  }
  if (reason) throw error(sentence, reason);

  QFile source(from);
  if (!source.open(QIODevice::ReadOnly)) throw error(sentence, source);
  // QFile::copy() does not tell why it fails, and writes down root's own rights for the file's.
  constexpr auto ownRights = QFile::ReadUser | QFile::WriteUser | QFile::ExeUser;
  QTemporaryFile copy(beside(to));
  const bool isWritten = copy.open() && copyAll(source, copy);
  if (source.error() != QFileDevice::NoError) throw error(sentence, source);
  if (!isWritten || !copy.setPermissions(source.permissions() & ~ownRights) ||
      !copy.rename(toQString(to.native()))) {
    throw error(sentence, copy);
  }
  copy.setAutoRemove(false);
}

void setPosixPermissions(const fs::path& path, unsigned permissions) {
  std::error_code reason;
  fs::permissions(path, fs::perms(permissions), reason);
  if (reason) throw error("The permissions of " + quoted(path) + " couldn’t be changed", reason);
}

void writeAtomically(std::string_view text, const fs::path& path) {
  const std::string sentence = "The file " + quoted(path) + " couldn’t be written";
  // QSaveFile would wait for the disk, which nothing here is worth, and replaces no file that must
  // not be written to.
  constexpr auto permissions =
      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
  QTemporaryFile file(beside(path));
  if (!file.open() || !writeAll(file, text) || !file.setPermissions(permissions)) {
    throw error(sentence, file);
  }
  std::error_code reason;
  fs::rename(fromQString(file.fileName()), path, reason);
  if (reason) throw error(sentence, reason);
  file.setAutoRemove(false);
}

}  // namespace platform::FileManager
