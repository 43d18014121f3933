#include "platform/FileManager.h"

#include "platform/cocoa/Conversions.h"
#include "platform/cocoa/Quarantine.h"

namespace platform::FileManager {
namespace {

NSFileManager* manager() {
  return NSFileManager.defaultManager;
}

void throwUnless(BOOL succeeded, NSError* error) {
  if (!succeeded) throw fromNSError(error);
}

// A new folder on the volume of `url`, where a move is one rename. The system empties the place
// where it lies, also of what was killed half-way.
NSURL* replacementFolder(NSURL* folder, NSError** error) {
  return [manager() URLForDirectory:NSItemReplacementDirectory
                           inDomain:NSUserDomainMask
                  appropriateForURL:folder
                             create:YES
                              error:error];
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
  if (fileExists(to)) {  // bound to fail, with an error that names the file in the way
    const BOOL copied = [manager() copyItemAtURL:source toURL:target error:&error];
    return throwUnless(copied, error);
  }
  NSURL* folder = replacementFolder(target.URLByDeletingLastPathComponent, &error);
  NSURL* whole = [folder URLByAppendingPathComponent:target.lastPathComponent isDirectory:NO];
  BOOL copied = folder != nil && [manager() copyItemAtURL:source toURL:whole error:&error];
  if (copied) {
    dropQuarantine(fromNSUrl(whole));  // before anybody sees the copy
    copied = [manager() moveItemAtURL:whole toURL:target error:&error];
  }
  if (folder != nil) [manager() removeItemAtURL:folder error:nil];
  throwUnless(copied, error);
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
