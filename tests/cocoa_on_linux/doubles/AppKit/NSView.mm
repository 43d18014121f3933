#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation CALayer
@end

@implementation NSResponder

- (BOOL)acceptsFirstResponder {
  return NO;
}

@end

@implementation NSView

@synthesize layer = _layer, wantsLayer = _wantsLayer, toolTip = _toolTip,
            accessibilityLabel = _accessibilityLabel;

- (instancetype)init {
  return [self initWithFrame:NSZeroRect];
}

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super init];
  self.frame = frame;
  below = [NSMutableArray array];
  return self;
}

- (void)addSubview:(NSView*)view {
  expect(view, NSView.class);
  if (view->above != nil) violation("A view moves from one view to another");
  view->above = self;
  [below addObject:view];
}

- (void)setWantsLayer:(BOOL)wantsLayer {
  _wantsLayer = wantsLayer;
  if (wantsLayer && _layer == nil) _layer = [[CALayer alloc] init];
}

- (void)setLayer:(CALayer*)layer {
  _layer = expectOrNil(layer, CALayer.class);
}

- (void)setToolTip:(NSString*)toolTip {
  _toolTip = [expectOrNil(toolTip, NSString.class) copy];
}

- (void)setAccessibilityLabel:(NSString*)label {
  _accessibilityLabel = [expectOrNil(label, NSString.class) copy];
}

- (NSArray<NSView*>*)subviews {
  return [below copy];
}

- (NSView*)superview {
  return above;
}

- (NSWindow*)window {
  return above != nil ? above.window : ownWindow;
}

@end
