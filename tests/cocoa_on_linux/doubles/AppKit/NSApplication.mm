#include "doubles/AppKit/Desktop.h"

using namespace doubles;

NSApplication* NSApp = nil;
const NSRunLoopMode NSModalPanelRunLoopMode = @"NSModalPanelRunLoopMode";
const NSRunLoopMode NSEventTrackingRunLoopMode = @"NSEventTrackingRunLoopMode";

@implementation NSApplication {
  NSApplicationActivationPolicy policy;
}

@synthesize mainMenu = _mainMenu;

+ (NSApplication*)sharedApplication {
  if (NSApp == nil) NSApp = [[NSApplication alloc] init];
  return NSApp;
}

- (void)setMainMenu:(NSMenu*)menu {
  _mainMenu = expectOrNil(menu, NSMenu.class);
}

- (NSApplicationActivationPolicy)activationPolicy {
  return policy;
}

- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)newPolicy {
  policy = newPolicy;
  return YES;
}

- (NSAppearance*)effectiveAppearance {
  return [[NSAppearance alloc] init];
}

- (NSWindow*)modalWindow {
  return desktop.modal.empty() ? nil : desktop.modal.back();
}

- (void)activateIgnoringOtherApps:(BOOL)flag {
  if (flag) desktop.activations++;
}

- (void)run {
  @autoreleasepool {
    NSNotification* launched =
        [NSNotification notificationWithName:@"NSApplicationDidFinishLaunchingNotification"
                                      object:self];
    id<NSApplicationDelegate> delegate = self.delegate;
    if ([delegate respondsToSelector:@selector(applicationDidFinishLaunching:)])
      [delegate applicationDidFinishLaunching:launched];
  }
  if (session) {
    runPending();
    session();
    return runPending();
  }
  loop::runInMode(
      NSDefaultRunLoopMode, [] { return desktop.isTerminated; }, 60);
}

// The process would end here.
- (void)terminate:(id)sender {
  desktop.isTerminated = true;
}

@end

namespace doubles {

bool endSession() {
  if (NSApp.modalWindow.preventsApplicationTerminationWhenModal) return false;
  [NSApp terminate:nil];
  return true;
}

}  // namespace doubles

@implementation NSProcessInfo (Recorded)

- (NSArray*)arguments {
  NSMutableArray* all = [NSMutableArray array];
  for (const auto& argument : doubles::arguments)
    [all addObject:[NSString stringWithUTF8String:argument.c_str()]];
  return all;
}

- (id<NSObject>)beginActivityWithOptions:(NSActivityOptions)options reason:(NSString*)reason {
  if ([expect(reason, NSString.class) length] == 0)
    raise(NSInvalidArgumentException, @"An activity needs a reason");
  NSObject* token = [[NSObject alloc] init];
  desktop.activities.push_back({options, reason.UTF8String, token});
  return token;
}

- (void)endActivity:(id<NSObject>)activity {
  if (std::erase_if(desktop.activities,
                    [&](const Activity& each) { return each.token == activity; }) != 1)
    violation("An activity ends that has not begun");
}

@end
