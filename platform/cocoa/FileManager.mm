#include "platform/FileManager.h"

#include <cerrno>

#include "platform/cocoa/Conversions.h"
#include "platform/cocoa/FileSystem.h"

namespace platform::FileManager {
namespace {

NSFileManager* manager() {
  return NSFileManager.defaultManager;
}

void throwUnless(BOOL succeeded, NSError* error) {
  if (!succeeded) throw fromNSError(error);
}

// A new folder on the volume of `folder`, where a move is one rename; nil where there can be none.
// The system empties the place where it lies, also of what was killed half-way.
NSURL* replacementFolder(NSURL* folder) {
  return [manager() URLForDirectory:NSItemReplacementDirectory
                           inDomain:NSUserDomainMask
                  appropriateForURL:folder
                             create:YES
                              error:nil];
}

BOOL copyDirectly(NSURL* source, NSURL* target, NSError** error) {
  const BOOL copied = [manager() copyItemAtURL:source toURL:target error:error];
  if (copied) dropQuarantine(fromNSUrl(target));
  return copied;
}

// Tells of `target`, which the user knows, what happened to `whole`.
NSError* errorOf(NSURL* target, NSURL* whole, NSError* error) {
  NSMutableDictionary* info = [error.userInfo mutableCopy];
  for (NSString* key in error.userInfo) {
    if ([info[key] isEqual:whole.path]) info[key] = target.path;
    if ([info[key] isEqual:whole]) info[key] = target;
  }
  return [NSError errorWithDomain:error.domain code:error.code userInfo:info];
}

}  // namespace

std::filesystem::path homeDirectoryForCurrentUser() {
  return fromNSUrl(manager().homeDirectoryForCurrentUser);
}

std::vector<std::filesystem::path> applicationSupportDirectories() {
  std::vector<std::filesystem::path> all;
  for (NSURL* url in [manager() URLsForDirectory:NSApplicationSupportDirectory
                                       inDomains:NSUserDomainMask])
    all.push_back(fromNSUrl(url));
  return all;
}

bool fileExists(const std::filesystem::path& path) {
  return [manager() fileExistsAtPath:nsString(path.native())];
}

void createDirectoryWithIntermediateDirectories(const std::filesystem::path& path) {
  NSError* error = nil;
  const BOOL created = [manager() createDirectoryAtURL:nsUrl(path)
                           withIntermediateDirectories:YES
                                            attributes:nil
                                                 error:&error];
  throwUnless(created, error);
}

void removeItem(const std::filesystem::path& path) {
  NSError* error = nil;
  const BOOL removed = [manager() removeItemAtURL:nsUrl(path) error:&error];
  throwUnless(removed, error);
}

void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) {
  NSError* error = nil;
  NSURL* source = nsUrl(from);
  NSURL* target = nsUrl(to);
  // What is in the way makes a direct copy fail, with an error that names it.
  NSURL* folder = fileExists(to) ? nil : replacementFolder(target.URLByDeletingLastPathComponent);
  if (folder == nil) {
    const BOOL copied = copyDirectly(source, target, &error);
    return throwUnless(copied, error);
  }
  NSURL* whole = [folder URLByAppendingPathComponent:target.lastPathComponent isDirectory:NO];
  BOOL copied = [manager() copyItemAtURL:source toURL:whole error:&error];
  if (copied) {
    dropQuarantine(fromNSUrl(whole));  // before anybody sees the copy
    const int failure = renameExclusively(fromNSUrl(whole), to);
    if (failure == EEXIST)
      copied = copyDirectly(source, target, &error);
    else if (failure != 0)
      copied = [manager() moveItemAtURL:whole toURL:target error:&error];
  }
  [manager() removeItemAtURL:folder error:nil];
  if (!copied) throw fromNSError(errorOf(target, whole, error));
}

void setPosixPermissions(const std::filesystem::path& path, unsigned permissions) {
  NSError* error = nil;
  const BOOL set = [manager() setAttributes:@{
    NSFilePosixPermissions : @(permissions)
  }
                               ofItemAtPath:nsString(path.native())
                                      error:&error];
  throwUnless(set, error);
}

void writeAtomically(std::string_view text, const std::filesystem::path& path) {
  NSError* error = nil;
  const BOOL written = [nsString(text) writeToURL:nsUrl(path)
                                       atomically:YES
                                         encoding:NSUTF8StringEncoding
                                            error:&error];
  throwUnless(written, error);
}

}  // namespace platform::FileManager
