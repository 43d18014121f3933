#pragma once

#include <string>
#include <vector>

#include "doubles/Doubles.h"
#include "doubles/RunLoop.h"
#include "runtime/Runtime.h"

/// What the doubles of AppKit's classes share. Each is in a file that is named as the framework's
/// header is.
namespace doubles {

using runtime::violation;

struct Desktop {
  bool isTerminated = false;
  int activations = 0;
  __weak NSWindow* key = nil;
  std::vector<NSWindow*> windows;  // on the screen, which keeps them
  std::vector<__weak NSStatusItem*> statusItems;
  __weak NSStatusItem* openItem = nil;
  NSAppearance* drawing = nil;  // the one that is current, which outside drawing none can rely on
  std::vector<NSWindow*> modal;
  std::vector<Activity> activities;
};

extern Desktop desktop;

/// Sends `action` as a control or menu item does. Its target may have gone.
BOOL sendAction(SEL action, id target, id sender);

}  // namespace doubles

@interface NSView () {
 @public
  __weak NSWindow* ownWindow;  // of a content view
  __weak NSView* above;
  NSMutableArray<NSView*>* below;
}
@end

@interface NSMenuItem () {
 @public
  __weak NSMenu* itsMenu;
  BOOL isSeparator;
}
@end
