#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "doubles/Doubles.h"
#include "doubles/FileError.h"
#include "doubles/RunLoop.h"
#include "runtime/Runtime.h"

using namespace doubles;
using runtime::violation;

namespace doubles {

IoKit ioKit;
std::optional<std::string> bundledResources;
std::optional<std::string> executable;
bool hasApplicationSupport = true;
std::vector<Run> runs;
std::function<std::string(const std::string&)> substituteExecutable;

}  // namespace doubles

// Core Foundation and IOKit

id CFBridgingRelease(CFTypeRef object) {
  return (__bridge_transfer id)object;
}

const mach_port_t kIOMainPortDefault = 17;

namespace {

constexpr io_object_t expertDevice = 4711;
int liveObjects = 0;

NSString* path(const std::string& text) {
  return [NSString stringWithUTF8String:text.c_str()];
}

}  // namespace

int doubles::liveIoObjects() {
  return liveObjects;
}

CFMutableDictionaryRef IOServiceMatching(const char* name) {
  NSMutableDictionary* matching = [NSMutableDictionary dictionary];
  matching[@"IOProviderClass"] = [NSString stringWithUTF8String:name];
  return (__bridge_retained CFMutableDictionaryRef)matching;
}

io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching) {
  NSDictionary* taken = (__bridge_transfer NSDictionary*)matching;
  if (mainPort != kIOMainPortDefault) violation("IOKit is asked on a wrong port");
  if (!ioKit.hasService) return IO_OBJECT_NULL;
  if (![taken[@"IOProviderClass"] isEqual:@"IOPlatformExpertDevice"]) return IO_OBJECT_NULL;
  liveObjects++;
  return expertDevice;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options) {
  if (entry != expertDevice || liveObjects == 0) violation("IOKit is asked for no object of its");
  if (allocator != kCFAllocatorDefault || options != 0) violation("Unusual options for IOKit");
  if (![(__bridge NSString*)key isEqual:@"IOPlatformUUID"]) return nullptr;
  return (__bridge_retained CFTypeRef)ioKit.property;
}

kern_return_t IOObjectRelease(io_object_t object) {
  if (object != expertDevice || liveObjects == 0) violation("IOKit gets back what it did not give");
  liveObjects--;
  return 0;
}

@implementation NSBundle (Recorded)

- (NSURL*)executableURL {
  return executable ? [NSURL fileURLWithPath:path(*executable) isDirectory:NO] : nil;
}

- (NSURL*)URLForResource:(NSString*)name withExtension:(NSString*)extension {
  expect(name, NSString.class);
  if (extension != nil) violation("A resource is looked up with an extension");
  if (name.length == 0) violation("A resource without a name is any");
  if (!bundledResources) return nil;
  NSString* file = [path(*bundledResources) stringByAppendingPathComponent:name];
  if (![NSFileManager.defaultManager fileExistsAtPath:file]) return nil;
  return [NSURL fileURLWithPath:file isDirectory:NO];
}

@end

// Processes

@implementation NSTask {
  pid_t pid;
  BOOL isLaunched;
  BOOL hasExited;
}

@synthesize executableURL = _executableURL, arguments = _arguments,
            standardOutput = _standardOutput, standardError = _standardError;

- (instancetype)init {
  return [super init];
}

- (void)requireLaunched:(BOOL)wanted {
  if (isLaunched != wanted)
    raise(NSInvalidArgumentException, isLaunched ? @"task already launched" : @"task not launched");
}

- (void)setExecutableURL:(NSURL*)url {
  [self requireLaunched:NO];
  expect(url, NSURL.class);
  if (!url.isFileURL) raise(NSInvalidArgumentException, @"non-file URL argument");
  _executableURL = [url copy];
}

- (void)setArguments:(NSArray<NSString*>*)arguments {
  [self requireLaunched:NO];
  expect(arguments, NSArray.class);
  for (NSString* argument in arguments) expect(argument, NSString.class);
  _arguments = [arguments copy];
}

- (void)setStandardOutput:(id)output {
  [self requireLaunched:NO];
  _standardOutput = expect(output, NSPipe.class);
}

- (void)setStandardError:(id)output {
  [self requireLaunched:NO];
  _standardError = expect(output, NSPipe.class);
}

// A pipe of Apple's holds this much whatever else goes on, and more only as memory allows.
static constexpr int smallestPipe = 16 * 1024;

static void redirect(posix_spawn_file_actions_t* actions, NSPipe* pipe, int to) {
  if (pipe == nil) return;
  fcntl(pipe.fileHandleForWriting.fileDescriptor, F_SETPIPE_SZ, smallestPipe);
  posix_spawn_file_actions_adddup2(actions, pipe.fileHandleForWriting.fileDescriptor, to);
}

// The system kills a copy of one of its own programs.
static bool isCopyOfTheSystems(const std::filesystem::path& program) {
  namespace fs = std::filesystem;
  std::error_code failure;
  const auto size = fs::file_size(program, failure);
  const auto content = [](const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  if (failure || fs::canonical(program).native().starts_with("/usr/")) return false;
  for (const auto& each : fs::directory_iterator("/usr/bin"))
    if (each.is_regular_file(failure) && each.file_size(failure) == size &&
        content(each) == content(program))
      return true;
  return false;
}

- (BOOL)launchAndReturnError:(NSError**)error {
  [self requireLaunched:NO];
  const std::string named = _executableURL.path.UTF8String;
  std::string program = substituteExecutable ? substituteExecutable(named) : named;
  if (isCopyOfTheSystems(program)) violation("A copy of a program of the system's is killed");
  std::vector<std::string> texts;
  for (NSString* argument in _arguments) texts.emplace_back(argument.UTF8String);
  std::vector<char*> argv = {program.data()};
  for (auto& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  redirect(&actions, _standardOutput, STDOUT_FILENO);
  redirect(&actions, _standardError, STDERR_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  const int failure = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);

  runs.push_back({named, texts, failure == 0});
  if (failure != 0) {
    if (error != nullptr) *error = fileError(failure, _executableURL.path);
    return NO;
  }
  isLaunched = YES;
  [[_standardOutput fileHandleForWriting] closeFile];
  [[_standardError fileHandleForWriting] closeFile];
  return YES;
}

- (BOOL)reap {
  if (!hasExited) hasExited = waitpid(pid, nullptr, WNOHANG) == pid;
  return hasExited;
}

// As documented, the run loop goes on in the default mode.
- (void)waitUntilExit {
  [self requireLaunched:YES];
  if (!runtime::isMainThread()) {
    waitpid(pid, nullptr, 0);
    hasExited = YES;
    return;
  }
  loop::runInMode(
      NSDefaultRunLoopMode, [self] { return static_cast<bool>([self reap]); },
      std::numeric_limits<int>::max());
}

@end

namespace doubles {

void resetRequests();

void resetFoundation() {
  ioKit = {};
  bundledResources.reset();
  executable = "/Applications/Velmor Pellix.app/Contents/MacOS/velmor-pellix";
  hasApplicationSupport = true;
  givesReplacementFolder = true;
  renamesExclusively = true;
  beforeRenaming = nullptr;
  runs.clear();
  substituteExecutable = nullptr;
  resetRequests();
}

}  // namespace doubles
