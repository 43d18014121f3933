#include "doubles/AppKit/Desktop.h"

namespace doubles {

std::function<void()> session;
std::vector<std::string> arguments;
std::function<NSModalResponse(NSAlert*)> answerAlert;
bool statusItemsHaveButtons = true;
std::set<std::string> knownSymbols;
std::vector<std::string> openedUrls;
bool pasteboardRefuses = false;
bool isDark = false;
bool alertsEndAtOnce = false;
bool hasKeyboardNavigation = false;

void raise(NSString* name, NSString* reason) {
  [NSException raise:name format:@"%@", reason];
  abort();
}

id expectOrNil(id object, Class expected) {
  if (object != nil && ![object isKindOfClass:expected])
    violation(std::string("Expected ") + class_getName(expected) + ", got " +
              class_getName(object_getClass(object)));
  return object;
}

id expect(id object, Class expected) {
  if (object == nil) violation(std::string("Expected ") + class_getName(expected) + ", got nil");
  return expectOrNil(object, expected);
}

Desktop desktop;

bool isTerminated() {
  return desktop.isTerminated;
}

int activations() {
  return desktop.activations;
}

NSWindow* keyWindow() {
  return desktop.key;
}

std::vector<Activity> activities() {
  return desktop.activities;
}

std::vector<NSWindow*> visibleWindows() {
  return desktop.windows;
}

std::vector<NSStatusItem*> statusItems() {
  std::vector<NSStatusItem*> all;
  for (NSStatusItem* item : desktop.statusItems)
    if (item != nil) all.push_back(item);
  return all;
}

void resetFoundation();

void reset() {
  @autoreleasepool {
    loop::reset();
    session = nullptr;
    answerAlert = nullptr;
    arguments = {"/Applications/Velmor Pellix.app/Contents/MacOS/velmor-pellix"};
    statusItemsHaveButtons = true;
    knownSymbols = {"checkmark.shield.fill",       "exclamationmark.shield", "shield.slash",
                    "clock.badge.exclamationmark", "xmark.shield.fill",      "shield"};
    openedUrls.clear();
    pasteboardRefuses = false;
    isDark = false;
    alertsEndAtOnce = false;
    hasKeyboardNavigation = false;
    desktop = {};
    NSApp = nil;
    [NSPasteboard.generalPasteboard clearContents];
    resetFoundation();
  }
}

}  // namespace doubles
