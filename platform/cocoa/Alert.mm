#include "platform/Alert.h"

#include "platform/Application.h"
#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

static_assert(static_cast<int>(NSAlertStyleWarning) == static_cast<int>(AlertStyle::warning));
static_assert(static_cast<int>(NSAlertStyleInformational) ==
              static_cast<int>(AlertStyle::informational));
static_assert(static_cast<int>(NSAlertStyleCritical) == static_cast<int>(AlertStyle::critical));
static_assert(NSAlertFirstButtonReturn == alertFirstButtonReturn);

NSAlert* nsAlert(const Alert& alert) {
  if (alert.error) return [NSAlert alertWithError:nsError(*alert.error)];
  NSAlert* made = [[NSAlert alloc] init];
  made.messageText = nsString(alert.messageText);
  made.informativeText = nsString(alert.informativeText);
  for (const auto& title : alert.buttons) [made addButtonWithTitle:nsString(title)];
  made.alertStyle = static_cast<NSAlertStyle>(alert.alertStyle);
  return made;
}

// Since macOS 14 the system may leave an application in the background that asks to be activated.
// Its alert is seen even then: it stands a level above the windows of all others, and is put in
// front and made key once more when its own event loop has shown it. A loop that ends before that
// leaves the block to the next alert's, which it does no harm.
void keepInFront(NSWindow* window) {
  window.level = NSModalPanelWindowLevel;
  [NSRunLoop.mainRunLoop performInModes:@[ NSModalPanelRunLoopMode ]
                                  block:^{
                                    [NSApp.modalWindow orderFrontRegardless];
                                    [NSApp.modalWindow makeKeyWindow];
                                  }];
}

}  // namespace

int runModal(const Alert& alert) {
  NSAlert* shown = nsAlert(alert);
  // Else nobody could log out or restart the Mac until it is answered.
  shown.window.preventsApplicationTerminationWhenModal = NO;
  Application::activateIgnoringOtherApps();
  keepInFront(shown.window);
  return static_cast<int>([shown runModal]);
}

}  // namespace platform
