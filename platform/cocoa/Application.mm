#include "platform/Application.h"

#include <utility>

#include "platform/cocoa/Conversions.h"

@interface PellixApplicationDelegate : NSObject <NSApplicationDelegate>
- (instancetype)initWithDelegate:(std::weak_ptr<platform::ApplicationDelegate>)delegate;
@end

@implementation PellixApplicationDelegate {
  std::weak_ptr<platform::ApplicationDelegate> delegate;
}

- (instancetype)initWithDelegate:(std::weak_ptr<platform::ApplicationDelegate>)newDelegate {
  self = [super init];
  delegate = std::move(newDelegate);
  return self;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  if (const auto current = delegate.lock()) current->applicationDidFinishLaunching();
}

@end

namespace platform {
namespace {

static_assert(static_cast<int>(NSApplicationActivationPolicyRegular) ==
              static_cast<int>(ActivationPolicy::regular));
static_assert(static_cast<int>(NSApplicationActivationPolicyAccessory) ==
              static_cast<int>(ActivationPolicy::accessory));
static_assert(static_cast<int>(NSApplicationActivationPolicyProhibited) ==
              static_cast<int>(ActivationPolicy::prohibited));

// An accessory's main menu is never shown, but it is where AppKit looks up Command and a key.
// Without a target an item goes to the text that has the keyboard, else to the window around it.
NSMenu* mainMenu() {
  NSMenu* file = [[NSMenu alloc] initWithTitle:@"File"];
  [file addItemWithTitle:@"Close" action:@selector(performClose:) keyEquivalent:@"w"];
  NSMenu* edit = [[NSMenu alloc] initWithTitle:@"Edit"];
  [edit addItemWithTitle:@"Copy" action:@selector(copy:) keyEquivalent:@"c"];
  [edit addItemWithTitle:@"Select All" action:@selector(selectAll:) keyEquivalent:@"a"];
  NSMenu* bar = [[NSMenu alloc] initWithTitle:@""];
  for (NSMenu* menu in @[ file, edit ])
    [bar setSubmenu:menu forItem:[bar addItemWithTitle:menu.title action:nil keyEquivalent:@""]];
  return bar;
}

// A process without a window is slowed down until its timers come minutes late. This keeps it, but
// not the Mac, awake.
id<NSObject> beginActivity() {
  return [NSProcessInfo.processInfo
      beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                        reason:@"Shows the state of this Mac in the menu bar"];
}

}  // namespace

struct Application::Implementation {
  id<NSObject> activity;
  PellixApplicationDelegate* delegate = nil;  // NSApplication holds it weakly
};

Application::Application()
    : implementation(std::make_unique<Implementation>(Implementation{beginActivity()})) {
  NSApplication.sharedApplication.mainMenu = mainMenu();
}

Application::~Application() {
  [NSProcessInfo.processInfo endActivity:implementation->activity];
}

void Application::setDelegate(std::weak_ptr<ApplicationDelegate> delegate) {
  implementation->delegate =
      [[PellixApplicationDelegate alloc] initWithDelegate:std::move(delegate)];
  NSApp.delegate = implementation->delegate;
}

void Application::setActivationPolicy(ActivationPolicy policy) {
  [NSApp setActivationPolicy:static_cast<NSApplicationActivationPolicy>(policy)];
}

void Application::run() {
  [NSApp run];
}

void Application::activateIgnoringOtherApps() {
  // Since macOS 14 this is a request. It is most likely granted while the user's own click is being
  // handled, which is now, and to an application whose window is there already, which is one turn
  // of the run loop later.
  [NSApp activateIgnoringOtherApps:YES];
  [NSRunLoop.mainRunLoop performInModes:@[ NSRunLoopCommonModes ]
                                  block:^{
                                    [NSApp activateIgnoringOtherApps:YES];
                                  }];
}

void Application::terminate() {
  [NSApp terminate:nil];
}

std::vector<std::string> Application::arguments() {
  std::vector<std::string> all;
  for (NSString* argument in NSProcessInfo.processInfo.arguments)
    all.push_back(fromNSString(argument));
  return all;
}

}  // namespace platform
