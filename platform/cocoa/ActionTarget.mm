#import "platform/cocoa/ActionTarget.h"

#include <utility>

#include "platform/Application.h"
#include "platform/cocoa/Conversions.h"

@implementation PellixActionTarget {
  platform::Action action;
}

- (instancetype)initWithAction:(platform::Action)newAction {
  self = [super init];
  action = std::move(newAction);
  return self;
}

- (void)performAction:(id)sender {
  // The menu can be opened while an alert waits, but the alert wants its answer first.
  if (NSWindow* alert = NSApp.modalWindow) {
    platform::Application::activateIgnoringOtherApps();
    return [alert makeKeyAndOrderFront:nil];
  }
  // A copy, as the action may replace the menu or window that this object goes with.
  const platform::Action current = action;
  current.perform();
}

@end
