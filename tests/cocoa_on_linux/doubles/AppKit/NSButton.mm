#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSButton

@synthesize title = _title, keyEquivalent = _keyEquivalent, image = _image,
            contentTintColor = _contentTintColor;

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super initWithFrame:frame];
  _title = @"Button";  // as AppKit's are at first
  _keyEquivalent = @"";
  return self;
}

+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action {
  NSButton* made = [[self alloc] initWithFrame:NSZeroRect];
  made.title = title;
  made.target = target;
  made.action = action;
  return made;
}

- (void)setTitle:(NSString*)title {
  _title = [expect(title, NSString.class) copy];
}

- (void)setKeyEquivalent:(NSString*)key {
  _keyEquivalent = [expect(key, NSString.class) copy];
}

- (void)setImage:(NSImage*)image {
  _image = expectOrNil(image, NSImage.class);
}

- (void)setContentTintColor:(NSColor*)color {
  _contentTintColor = [expectOrNil(color, NSColor.class) copy];
}

@end
