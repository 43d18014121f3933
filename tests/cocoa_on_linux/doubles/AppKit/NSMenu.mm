#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSMenuItem

@synthesize title = _title, keyEquivalent = _keyEquivalent, toolTip = _toolTip;

+ (NSMenuItem*)separatorItem {
  NSMenuItem* made = [[self alloc] initWithTitle:@"" action:nullptr keyEquivalent:@""];
  made->isSeparator = YES;
  return made;
}

- (instancetype)init {
  return [self initWithTitle:@"NSMenuItem" action:nullptr keyEquivalent:@""];
}

- (instancetype)initWithTitle:(NSString*)string
                       action:(SEL)selector
                keyEquivalent:(NSString*)charCode {
  self = [super init];
  self.title = string;
  self.action = selector;
  self.keyEquivalent = charCode;
  self.enabled = YES;
  return self;
}

- (void)setTitle:(NSString*)title {
  if (title == nil) raise(NSInvalidArgumentException, @"A menu item's title is nil");
  _title = [expect(title, NSString.class) copy];
}

- (void)setKeyEquivalent:(NSString*)key {
  if (key == nil) raise(NSInvalidArgumentException, @"A menu item's key equivalent is nil");
  _keyEquivalent = [expect(key, NSString.class) copy];
}

- (void)setToolTip:(NSString*)toolTip {
  _toolTip = [expectOrNil(toolTip, NSString.class) copy];
}

- (BOOL)isSeparatorItem {
  return isSeparator;
}

- (NSMenu*)menu {
  return itsMenu;
}

@end

@implementation NSMenu {
  NSMutableArray<NSMenuItem*>* items;
}

@synthesize title = _title;

- (instancetype)init {
  return [self initWithTitle:@""];
}

- (instancetype)initWithTitle:(NSString*)title {
  self = [super init];
  self.title = title;
  self.autoenablesItems = YES;
  items = [NSMutableArray array];
  return self;
}

- (void)setTitle:(NSString*)title {
  _title = [expect(title, NSString.class) copy];
}

- (void)addItem:(NSMenuItem*)newItem {
  expect(newItem, NSMenuItem.class);
  if (newItem->itsMenu != nil)
    raise(NSInternalInconsistencyException, @"Item to be inserted into menu already is in one");
  newItem->itsMenu = self;
  [items addObject:newItem];
}

- (NSMenuItem*)addItemWithTitle:(NSString*)string
                         action:(SEL)selector
                  keyEquivalent:(NSString*)charCode {
  NSMenuItem* made = [[NSMenuItem alloc] initWithTitle:string
                                                action:selector
                                         keyEquivalent:charCode];
  [self addItem:made];
  return made;
}

- (void)setSubmenu:(NSMenu*)menu forItem:(NSMenuItem*)item {
  expect(item, NSMenuItem.class);
  item.submenu = expectOrNil(menu, NSMenu.class);
}

- (NSArray<NSMenuItem*>*)itemArray {
  return [items copy];
}

@end

namespace doubles {

bool isEnabledWhenShown(NSMenuItem* item) {
  if (!item.menu.autoenablesItems) return item.enabled;
  return item.action != nullptr && [item.target respondsToSelector:item.action];
}

void openMenu(NSStatusItem* item, const std::function<void()>& meanwhile) {
  if (item.menu == nil) violation("A status item without a menu is opened");
  const loop::ModeScope scope(NSEventTrackingRunLoopMode);
  desktop.openItem = item;
  runPending();
  if (meanwhile) meanwhile();
  runPending();
  desktop.openItem = nil;
}

void pick(NSStatusItem* item, NSString* title, const std::function<void()>& meanwhile) {
  __weak NSMenuItem* picked = nil;
  for (NSMenuItem* entry in item.menu.itemArray)
    if ([entry.title isEqual:title]) picked = entry;
  if (picked == nil) return violation(std::string("No such menu item: ") + title.UTF8String);
  if (!isEnabledWhenShown(picked)) violation("A disabled menu item is picked");
  @autoreleasepool {
    openMenu(item, meanwhile);
    // The menu is closed, and nothing of it must have gone before the action is sent.
    if (picked == nil) return violation("A menu item is gone before its action is sent");
    sendAction(picked.action, picked.target, picked);
  }
  runPending();
}

bool pressCommandKey(NSString* key, NSResponder* firstResponder) {
  for (NSMenuItem* top in NSApp.mainMenu.itemArray)
    for (NSMenuItem* entry in top.submenu.itemArray)
      if ([entry.keyEquivalent isEqual:key]) {
        id receiver = entry.target != nil ? entry.target : firstResponder;
        if (entry.target == nil && ![receiver respondsToSelector:entry.action])
          receiver = desktop.key;
        return
            [receiver respondsToSelector:entry.action] && sendAction(entry.action, receiver, entry);
      }
  return false;
}

}  // namespace doubles
