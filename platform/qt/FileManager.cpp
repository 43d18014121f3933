#include "platform/FileManager.h"

#include <pwd.h>
#include <unistd.h>
#include <QDir>
#include <QTemporaryFile>
#include <cerrno>
#include <fstream>
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

/// For a new file in the place of `old`.
fs::perms permissions(const fs::path& old) {
  std::error_code reason;
  const fs::file_status status = fs::status(old, reason);
  // What the system gives by itself: a temporary file could be read by its owner alone.
  return fs::is_regular_file(status) ? status.permissions() : fs::perms(0644);
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
  QTemporaryFile copy(beside(to));
  if (!copy.open()) throw error(sentence, copy);
  std::error_code reason;
  fs::copy_file(from, fromQString(copy.fileName()), fs::copy_options::overwrite_existing, reason);
  if (reason) throw error(sentence, reason);
  if (!copy.rename(toQString(to.native()))) throw error(sentence, copy);
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
  QTemporaryFile file(beside(path));
  if (!file.open()) throw error(sentence, file);
  const fs::path written = fromQString(file.fileName());
  std::ofstream stream(written, std::ios::binary);
  stream << text;
  stream.close();  // a file system on the network may be full only now
  std::error_code reason;
  if (!stream) reason.assign(errno, std::generic_category());
  if (!reason) fs::permissions(written, permissions(path), reason);
  if (!reason) fs::rename(written, path, reason);
  if (reason) throw error(sentence, reason);
  file.setAutoRemove(false);
}

}  // namespace platform::FileManager
