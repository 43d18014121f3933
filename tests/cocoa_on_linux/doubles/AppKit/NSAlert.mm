#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSAlert {
  NSError* error;
  NSMutableArray<NSButton*>* shownButtons;
  NSWindow* panel;
}

@synthesize messageText = _messageText, informativeText = _informativeText;

+ (NSAlert*)alertWithError:(NSError*)error {
  NSAlert* made = [[self alloc] init];
  made->error = expect(error, NSError.class);
  made.messageText = error.localizedDescription;
  return made;
}

- (instancetype)init {
  self = [super init];
  _messageText = @"";
  _informativeText = @"";
  shownButtons = [NSMutableArray array];
  panel = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 420, 120)
                                      styleMask:NSWindowStyleMaskTitled
                                        backing:NSBackingStoreBuffered
                                          defer:YES];
  panel.releasedWhenClosed = NO;
  return self;
}

- (void)setMessageText:(NSString*)text {
  _messageText = [expect(text, NSString.class) copy];
}

- (void)setInformativeText:(NSString*)text {
  _informativeText = [expect(text, NSString.class) copy];
}

// The first button answers Return, and one named Cancel answers Escape.
- (NSButton*)addButtonWithTitle:(NSString*)title {
  NSButton* made = [NSButton buttonWithTitle:title target:nil action:nullptr];
  if (shownButtons.count == 0)
    made.keyEquivalent = @"\r";
  else if ([title isEqual:@"Cancel"])
    made.keyEquivalent = @"\033";
  [shownButtons addObject:made];
  return made;
}

- (NSArray<NSButton*>*)buttons {
  return [shownButtons copy];
}

- (NSWindow*)window {
  return panel;
}

- (NSModalResponse)runModal {
  if (shownButtons.count == 0) [self addButtonWithTitle:@"OK"];
  const loop::ModeScope scope(NSModalPanelRunLoopMode);
  [panel makeKeyAndOrderFront:nil];
  desktop.modal.push_back(panel);
  NSModalResponse response = NSAlertFirstButtonReturn;
  @autoreleasepool {
    if (!alertsEndAtOnce) runPending();
    if (answerAlert)
      response = answerAlert(self);
    else
      violation("Nobody answers an alert");
    if (!alertsEndAtOnce) runPending();
  }
  desktop.modal.pop_back();
  [panel orderOut:nil];
  return response;
}

- (NSError*)recordedError {
  return error;
}

@end

namespace doubles {

NSModalResponse responseForKey(NSAlert* alert, NSString* key) {
  for (NSUInteger i = 0; i < alert.buttons.count; i++)
    if ([alert.buttons[i].keyEquivalent isEqual:key])
      return NSAlertFirstButtonReturn + static_cast<NSModalResponse>(i);
  return 0;
}

}  // namespace doubles
