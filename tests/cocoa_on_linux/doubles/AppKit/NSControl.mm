#include "doubles/AppKit/Desktop.h"

using namespace doubles;

namespace doubles {

BOOL sendAction(SEL action, id target, id sender) {
  if (action == nullptr || target == nil) return NO;
  if (![target respondsToSelector:action]) {
    violation(std::string("A target does not know ") + sel_getName(action));
    return NO;
  }
  reinterpret_cast<void (*)(id, SEL, id)>([target methodForSelector:action])(target, action,
                                                                             sender);
  return YES;
}

}  // namespace doubles

@implementation NSControl

@synthesize enabled = _enabled, stringValue = _stringValue, font = _font;

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super initWithFrame:frame];
  _enabled = YES;
  _stringValue = @"";
  return self;
}

- (void)setStringValue:(NSString*)value {
  _stringValue = [expect(value, NSString.class) copy];
}

- (void)setFont:(NSFont*)newFont {
  _font = expectOrNil(newFont, NSFont.class);
}

- (BOOL)acceptsFirstResponder {
  return self.enabled;
}

- (void)performClick:(id)sender {
  if (self.enabled) sendAction(self.action, self.target, self);
}

@end
