#include "platform/StatusItem.h"

#include "platform/cocoa/ActionTarget.h"
#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

NSMenuItem* nsMenuItem(const MenuItem& item) {
  if (item.isSeparatorItem) return [NSMenuItem separatorItem];
  // Automatic enabling would enable whatever has an action.
  const bool acts = item.action && item.isEnabled;
  NSMenuItem* made = [[NSMenuItem alloc] initWithTitle:nsString(item.title)
                                                action:acts ? @selector(performAction:) : nil
                                         keyEquivalent:nsString(item.keyEquivalent)];
  made.toolTip = nsStringOrNil(item.toolTip);
  made.enabled = item.isEnabled;
  if (acts) {
    made.representedObject = [[PellixActionTarget alloc] initWithAction:*item.action];
    made.target = made.representedObject;  // held weakly, hence the ownership above
  }
  return made;
}

NSMenu* nsMenu(const Menu& menu) {
  NSMenu* made = [[NSMenu alloc] initWithTitle:@""];
  for (const auto& item : menu.items) [made addItem:nsMenuItem(item)];
  return made;
}

// AppKit applies a button's tint to template images only. A tinted image is none, so it carries the
// colour itself: as a dynamic colour, which suits light and dark bars, and in the hierarchical
// mode, which keeps a symbol's mark apart from the shield that it stands on.
NSImage* nsImage(const Image& image, std::optional<Color> tint) {
  NSImage* made = [NSImage imageWithSystemSymbolName:nsString(image.systemSymbolName)
                            accessibilityDescription:nsString(image.accessibilityDescription)];
  if (tint)
    made =
        [made imageWithSymbolConfiguration:[NSImageSymbolConfiguration
                                               configurationWithHierarchicalColor:nsColor(*tint)]];
  [made setTemplate:image.isTemplate];
  return made;
}

}  // namespace

struct StatusItem::Implementation {
  NSStatusItem* item;  // the status bar keeps only items that somebody else owns
  // The menu that waits for its turn, or nil; the block that waits with it owns it as well.
  std::shared_ptr<NSMenu*> next = std::make_shared<NSMenu*>(nil);
};

StatusItem::StatusItem(double length)
    : implementation(std::make_unique<Implementation>(
          Implementation{[NSStatusBar.systemStatusBar statusItemWithLength:length]})) {}

StatusItem::~StatusItem() {
  [NSStatusBar.systemStatusBar removeStatusItem:implementation->item];
}

bool StatusItem::hasButton() const {
  return implementation->item.button != nil;
}

void StatusItem::setButton(const StatusBarButton& button) {
  NSStatusBarButton* shown = implementation->item.button;
  shown.image = button.image ? nsImage(*button.image, button.contentTintColor) : nil;
  shown.title = nsString(button.title);
  shown.contentTintColor = button.contentTintColor ? nsColor(*button.contentTintColor) : nil;
  shown.toolTip = nsString(button.toolTip);
  // VoiceOver reads the state, also where a glyph stands for the image.
  shown.accessibilityLabel = nsString(button.toolTip);
}

void StatusItem::setMenu(const Menu& menu) {
  // AppKit closes an open menu that is replaced, and a menu's items must live until the one that
  // was picked has sent its action. While a menu is open the run loop is in the event-tracking
  // mode, so what waits for the default mode comes after both; otherwise it comes before the next
  // event. An alert may keep it waiting for days, so one block waits, for the last menu.
  NSStatusItem* item = implementation->item;
  const auto next = implementation->next;
  const bool isWaiting = *next != nil;
  *next = nsMenu(menu);
  if (isWaiting) return;
  [NSRunLoop.mainRunLoop performInModes:@[ NSDefaultRunLoopMode ]
                                  block:^{
                                    @autoreleasepool {  // as in MainQueue
                                      item.menu = *next;
                                      *next = nil;
                                    }
                                  }];
}

}  // namespace platform
