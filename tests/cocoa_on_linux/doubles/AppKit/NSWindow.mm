#include "doubles/AppKit/Desktop.h"

#include <algorithm>

using namespace doubles;

@implementation NSWindow {
  NSRect contentRect;
  NSBackingStoreType backing;
  BOOL isDeferred;
  BOOL isCentered;
  BOOL wasShown;
}

@synthesize title = _title, contentView = _contentView, firstResponder = _firstResponder;

- (instancetype)initWithContentRect:(NSRect)rect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag {
  self = [super init];
  contentRect = rect;
  backing = backingStoreType;
  isDeferred = flag;
  _title = @"";
  self.styleMask = style;
  self.releasedWhenClosed = YES;
  self.restorable = (style & NSWindowStyleMaskTitled) != 0;
  self.preventsApplicationTerminationWhenModal = YES;
  if (backingStoreType != NSBackingStoreBuffered) violation("Only buffered windows exist");
  return self;
}

- (void)setTitle:(NSString*)title {
  _title = [expect(title, NSString.class) copy];
}

- (void)setContentView:(NSView*)view {
  expectOrNil(view, NSView.class);
  if (view.superview != nil) violation("A content view has a view above it");
  _contentView = view;
  if (view == nil) return;
  view->ownWindow = self;
  view.frame = NSMakeRect(0, 0, contentRect.size.width, contentRect.size.height);
}

- (BOOL)isVisible {
  return std::ranges::find(desktop.windows, self) != desktop.windows.end();
}

- (void)center {
  isCentered = YES;
}

- (void)close {
  if (self.isVisible && self.releasedWhenClosed)
    violation("A window is released when it closes, and once more by its owner");
  [self orderOut:nil];
}

// As the user asks for it: with a beep and no more if the window has no button for it.
- (void)performClose:(id)sender {
  if ((self.styleMask & NSWindowStyleMaskClosable) != 0) [self close];
}

static NSView* firstKeyView(NSView* view) {
  if ([view isKindOfClass:NSTextField.class] && view.acceptsFirstResponder) return view;
  for (NSView* each in view.subviews)
    if (NSView* found = firstKeyView(each)) return found;
  return nil;
}

// Unless another is chosen that may have it, the first text that can be selected or edited has the
// keyboard, and is selected. A button may where the user navigates by keyboard, which is off at
// first.
- (void)chooseFirstResponder {
  if (wasShown) return;
  wasShown = YES;
  NSView* chosen = self.initialFirstResponder;
  if (chosen != nil && chosen.window != self)
    violation("A view of another window has the keyboard");
  const bool mayHaveIt = chosen.acceptsFirstResponder &&
                         (hasKeyboardNavigation || ![chosen isKindOfClass:NSButton.class]);
  _firstResponder = mayHaveIt ? chosen : firstKeyView(self.contentView);
}

// Whoever asks for it by name gets it.
- (BOOL)makeFirstResponder:(NSResponder*)responder {
  expectOrNil(responder, NSResponder.class);
  _firstResponder = responder != nil ? responder : self;
  return YES;
}

- (void)orderFrontRegardless {
  [self chooseFirstResponder];
  if (!self.isVisible) desktop.windows.push_back(self);
}

- (void)makeKeyWindow {
  if (self.isVisible) desktop.key = self;
}

- (void)makeKeyAndOrderFront:(id)sender {
  [self orderFrontRegardless];
  [self makeKeyWindow];
}

- (void)orderOut:(id)sender {
  if (desktop.key == self) desktop.key = nil;
  NSWindow* kept = self;
  std::erase(desktop.windows, kept);
}

- (BOOL)recordedIsCentered {
  return isCentered;
}

- (NSRect)recordedContentRect {
  return contentRect;
}

- (NSBackingStoreType)recordedBacking {
  return backing;
}

- (BOOL)recordedDefer {
  return isDeferred;
}

@end

@implementation NSWindowController

@synthesize window = _window;

- (instancetype)initWithWindow:(NSWindow*)window {
  self = [super init];
  self.window = window;
  self.shouldCascadeWindows = YES;
  return self;
}

- (void)setWindow:(NSWindow*)window {
  _window = expectOrNil(window, NSWindow.class);
  window.windowController = self;
}

- (void)showWindow:(id)sender {
  [self.window makeKeyAndOrderFront:sender];
}

@end

static bool clickKeyEquivalent(NSView* view, NSString* key) {
  if ([view isKindOfClass:NSButton.class]) {
    auto* button = static_cast<NSButton*>(view);
    if ([button.keyEquivalent isEqual:key]) {
      [button performClick:nil];
      return true;
    }
  }
  for (NSView* each in view.subviews)
    if (clickKeyEquivalent(each, key)) return true;
  return false;
}

namespace doubles {

void pressKey(NSString* key) {
  @autoreleasepool {
    clickKeyEquivalent(desktop.key.contentView, key);
  }
  runPending();
}

}  // namespace doubles
