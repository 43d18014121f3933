#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSStatusBarButton
@end

@interface NSStatusItem () {
 @public
  NSStatusBarButton* itsButton;
  __weak NSStatusBar* itsBar;
}
@end

@implementation NSStatusItem

@synthesize menu = _menu;

- (void)setMenu:(NSMenu*)menu {
  if (desktop.openItem == self) violation("A menu is replaced while it is open, which closes it");
  _menu = expectOrNil(menu, NSMenu.class);
}

- (NSStatusBarButton*)button {
  return itsButton;
}

@end

@implementation NSStatusBar

+ (NSStatusBar*)systemStatusBar {
  static NSStatusBar* only = [[NSStatusBar alloc] init];
  return only;
}

// The bar does not keep its items.
- (NSStatusItem*)statusItemWithLength:(CGFloat)length {
  NSStatusItem* made = [[NSStatusItem alloc] init];
  made.length = length;
  if (statusItemsHaveButtons) made->itsButton = [[NSStatusBarButton alloc] init];
  made->itsBar = self;
  desktop.statusItems.push_back(made);
  return made;
}

- (void)removeStatusItem:(NSStatusItem*)item {
  expect(item, NSStatusItem.class);
  if (item->itsBar != self) violation("A status item is removed that is not in the bar");
  item->itsBar = nil;
  std::erase_if(desktop.statusItems,
                [item](NSStatusItem* each) { return each == nil || each == item; });
}

@end
