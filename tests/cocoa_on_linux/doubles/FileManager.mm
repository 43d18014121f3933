#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/stdio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "doubles/Doubles.h"
#include "doubles/ExtendedAttributes.h"
#include "doubles/FileError.h"
#include "runtime/Runtime.h"

using namespace doubles;
using runtime::violation;

namespace doubles {

bool givesReplacementFolder = true;
bool renamesExclusively = true;
std::function<void()> beforeRenaming;

static NSString* const destinationKey = @"NSDestinationFilePath";

static NSError* error(int failure, NSDictionary* files) {
  NSInteger code = 512;  // unknown, writing
  if (failure == ENOENT || failure == ENOTDIR) code = 4;
  if (failure == EACCES || failure == EPERM) code = 513;
  if (failure == EEXIST) code = 516;
  if (failure == ENOSPC || failure == EFBIG) code = 640;
  NSMutableDictionary* info = [files mutableCopy];
  info[NSUnderlyingErrorKey] = [NSError errorWithDomain:NSPOSIXErrorDomain
                                                   code:failure
                                               userInfo:@{}];
  return [NSError errorWithDomain:NSCocoaErrorDomain code:code userInfo:info];
}

NSError* fileError(int failure, NSString* file) {
  return error(failure, @{NSFilePathErrorKey : file});
}

}  // namespace doubles

namespace {

BOOL fail(int failure, NSString* file, NSError** error) {
  if (error != nullptr) *error = fileError(failure, file);
  return NO;
}

// Of a copy or a move both ends are told.
BOOL fail(int failure, NSString* from, NSString* to, NSError** error) {
  if (error != nullptr)
    *error = doubles::error(failure, @{NSFilePathErrorKey : from, destinationKey : to});
  return NO;
}

NSString* fileOf(NSURL* url) {
  expect(url, NSURL.class);
  if (!url.isFileURL) raise(NSInvalidArgumentException, @"Not a file URL");
  return url.path;
}

std::string posix(NSString* path) {
  return expect(path, NSString.class) == nil ? "" : path.UTF8String;
}

BOOL outcome(const std::error_code& failure, NSString* file, NSError** error) {
  return failure ? fail(failure.value(), file, error) : YES;
}

// 0 or an errno. What was written so far stays, as on a disk that runs full.
int writeWhole(const std::string& file, mode_t mode, const char* bytes, std::size_t size) {
  const int to = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (to < 0) return errno;
  int failure = 0;
  while (size > 0 && failure == 0) {
    const ssize_t count = write(to, bytes, size);
    if (count < 0)
      failure = errno;
    else
      bytes += count, size -= static_cast<std::size_t>(count);
  }
  if (failure == 0 && fchmod(to, mode) != 0) failure = errno;
  close(to);
  return failure;
}

}  // namespace

@implementation NSFileManager

+ (NSFileManager*)defaultManager {
  static NSFileManager* only = [[NSFileManager alloc] init];
  return only;
}

- (NSURL*)homeDirectoryForCurrentUser {
  const char* home = getenv("HOME");
  NSString* path =
      [NSString stringWithUTF8String:home != nullptr ? home : getpwuid(getuid())->pw_dir];
  return [NSURL fileURLWithPath:path isDirectory:YES];
}

- (NSArray<NSURL*>*)URLsForDirectory:(NSSearchPathDirectory)directory
                           inDomains:(NSSearchPathDomainMask)domainMask {
  if (directory != NSApplicationSupportDirectory || domainMask != NSUserDomainMask)
    violation("Another folder than Application Support is asked for");
  if (!hasApplicationSupport) return @[];
  NSString* home = self.homeDirectoryForCurrentUser.path;
  return @[ [NSURL fileURLWithPath:[home stringByAppendingString:@"/Library/Application Support"]
                       isDirectory:YES] ];
}

- (NSURL*)URLForDirectory:(NSSearchPathDirectory)directory
                 inDomain:(NSSearchPathDomainMask)domain
        appropriateForURL:(NSURL*)url
                   create:(BOOL)shouldCreate
                    error:(NSError**)error {
  NSString* file = fileOf(url);
  if (directory != NSItemReplacementDirectory || domain != NSUserDomainMask || !shouldCreate)
    violation("Another folder than one for a replacement is asked for");
  if (!givesReplacementFolder || ![self fileExistsAtPath:url.path]) {
    fail(ENOENT, file, error);
    return nil;
  }
  std::string made = std::filesystem::temp_directory_path() / "pellix-replacement-XXXXXX";
  if (mkdtemp(made.data()) == nullptr) {
    fail(errno, file, error);
    return nil;
  }
  return [NSURL fileURLWithPath:[NSString stringWithUTF8String:made.c_str()] isDirectory:YES];
}

- (BOOL)fileExistsAtPath:(NSString*)path {
  struct stat info = {};
  return stat(posix(path).c_str(), &info) == 0;
}

- (BOOL)createDirectoryAtURL:(NSURL*)url
    withIntermediateDirectories:(BOOL)createIntermediates
                     attributes:(NSDictionary<NSString*, id>*)attributes
                          error:(NSError**)error {
  NSString* file = fileOf(url);
  if (!createIntermediates || attributes != nil) violation("Unusual options for a new folder");
  std::error_code failure;
  std::filesystem::create_directories(posix(file), failure);
  if (!failure && !std::filesystem::is_directory(posix(file))) return fail(EEXIST, file, error);
  return outcome(failure, file, error);
}

- (BOOL)removeItemAtURL:(NSURL*)url error:(NSError**)error {
  NSString* file = fileOf(url);
  std::error_code failure;
  if (std::filesystem::remove_all(posix(file), failure) == 0 && !failure)
    return fail(ENOENT, file, error);
  return outcome(failure, file, error);
}

- (BOOL)copyItemAtURL:(NSURL*)from toURL:(NSURL*)to error:(NSError**)error {
  NSString* source = fileOf(from);
  NSString* target = fileOf(to);
  struct stat info = {};
  if (stat(posix(source).c_str(), &info) != 0) return fail(errno, source, target, error);
  NSData* bytes = [NSData dataWithContentsOfFile:source];
  if (bytes == nil) return fail(EACCES, source, target, error);
  const int failure = writeWhole(posix(target), info.st_mode & 07777u,
                                 static_cast<const char*>(bytes.bytes), bytes.length);
  if (failure != 0) return fail(failure, source, target, error);
  copyExtendedAttributes(posix(source).c_str(), posix(target).c_str());
  return YES;
}

// Looks first, and renames then, which replaces what has come in between.
- (BOOL)moveItemAtURL:(NSURL*)from toURL:(NSURL*)to error:(NSError**)error {
  NSString* source = fileOf(from);
  NSString* target = fileOf(to);
  struct stat info = {};
  if (lstat(posix(target).c_str(), &info) == 0) return fail(EEXIST, source, target, error);
  if (beforeRenaming) beforeRenaming();
  if (rename(posix(source).c_str(), posix(target).c_str()) == 0) return YES;
  return fail(errno, source, target, error);
}

- (BOOL)setAttributes:(NSDictionary<NSString*, id>*)attributes
         ofItemAtPath:(NSString*)path
                error:(NSError**)error {
  NSNumber* permissions = expect(attributes[NSFilePosixPermissions], NSNumber.class);
  if (attributes.count != 1) violation("Other attributes than permissions are set");
  if (chmod(posix(path).c_str(), permissions.unsignedShortValue) == 0) return YES;
  return fail(errno, path, error);
}

@end

int renamex_np(const char* from, const char* to, unsigned int flags) {
  if (flags != RENAME_EXCL) violation("Unusual options for renaming");
  if (beforeRenaming) beforeRenaming();
  errno = ENOTSUP;
  return renamesExclusively ? renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) : -1;
}

@implementation NSError (Recorded)

// Worded when it is asked for, from the code and the files.
- (NSString*)localizedDescription {
  NSString* given = self.userInfo[NSLocalizedDescriptionKey];
  NSString* file = self.userInfo[NSFilePathErrorKey];
  if (given != nil || file == nil)
    return given != nil ? given : [NSString stringWithFormat:@"%@ %ld", self.domain, self.code];
  NSString* target = self.userInfo[destinationKey];
  NSString* why = [NSString
      stringWithUTF8String:strerror(static_cast<int>([self.userInfo[NSUnderlyingErrorKey] code]))];
  if (target == nil)
    return [NSString stringWithFormat:@"“%@” cannot be used: %@", file.lastPathComponent, why];
  return
      [NSString stringWithFormat:@"“%@” couldn’t be copied to “%@”: %@", file.lastPathComponent,
                                 target.stringByDeletingLastPathComponent.lastPathComponent, why];
}

@end

@implementation NSString (Recorded)

- (BOOL)writeToURL:(NSURL*)url
        atomically:(BOOL)atomically
          encoding:(NSStringEncoding)encoding
             error:(NSError**)error {
  NSString* file = fileOf(url);
  if (!atomically || encoding != NSUTF8StringEncoding) violation("Unusual options for writing");
  NSData* bytes = [self dataUsingEncoding:NSUTF8StringEncoding];
  // The auxiliary file has a name of its own, however long the file's is.
  static std::atomic<int> count = 0;
  const auto auxiliary =
      std::filesystem::path(posix(file)).parent_path() / (".auxiliary-" + std::to_string(++count));
  int failure = writeWhole(auxiliary, 0644, static_cast<const char*>(bytes.bytes), bytes.length);
  if (failure == 0 && rename(auxiliary.c_str(), posix(file).c_str()) != 0) failure = errno;
  if (failure == 0) return YES;
  unlink(auxiliary.c_str());
  return fail(failure, file, error);
}

@end
