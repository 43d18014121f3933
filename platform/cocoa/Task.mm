#include "platform/Task.h"

#include "platform/cocoa/Conversions.h"

namespace platform {

struct Task::Implementation {
  NSTask* task;
  NSPipe* standardOutput = nil;  // of captured output only
  bool isLaunched = false;       // much of an NSTask raises unless it was launched
};

Task::Task(const std::filesystem::path& executableUrl, const std::vector<std::string>& arguments,
           Output output)
    : implementation(std::make_unique<Implementation>(Implementation{[[NSTask alloc] init]})) {
  NSTask* task = implementation->task;
  NSMutableArray<NSString*>* texts = [NSMutableArray array];
  for (const auto& argument : arguments) [texts addObject:nsString(argument)];
  task.executableURL = nsUrl(executableUrl);
  task.arguments = texts;
  if (output == Output::inherited) return;
  // Not +pipe, which leaves its result to the caller's pool: descriptors go with the task.
  implementation->standardOutput = [[NSPipe alloc] init];
  task.standardOutput = implementation->standardOutput;
  task.standardError = [[NSPipe alloc] init];
}

Task::~Task() = default;

void Task::launch() {
  NSError* error = nil;
  if (![implementation->task launchAndReturnError:&error]) throw fromNSError(error);
  implementation->isLaunched = true;
}

void Task::waitUntilExit() {
  if (implementation->isLaunched) [implementation->task waitUntilExit];
}

std::string Task::readStandardOutputToEnd() {
  if (!implementation->isLaunched || implementation->standardOutput == nil) return {};
  NSData* bytes = [implementation->standardOutput.fileHandleForReading readDataToEndOfFile];
  return fromNSData(bytes);
}

}  // namespace platform
