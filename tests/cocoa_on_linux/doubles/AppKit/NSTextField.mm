#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSTextField

- (BOOL)acceptsFirstResponder {
  return self.selectable;
}

+ (instancetype)labelWithString:(NSString*)stringValue {
  NSTextField* made = [[self alloc] initWithFrame:NSZeroRect];
  made.stringValue = stringValue;
  made.font = [NSFont systemFontOfSize:13 weight:NSFontWeightRegular];
  made.lineBreakMode = NSLineBreakByClipping;
  return made;
}

+ (instancetype)wrappingLabelWithString:(NSString*)stringValue {
  NSTextField* made = [self labelWithString:stringValue];
  made.selectable = YES;
  made.lineBreakMode = NSLineBreakByWordWrapping;
  return made;
}

@end
