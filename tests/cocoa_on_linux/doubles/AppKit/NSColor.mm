#include "doubles/AppKit/Desktop.h"

#include <map>

using namespace doubles;

struct CGColor {
  NSString* name;
};

NSString* recordedName(CGColorRef color) {
  return color == nullptr ? nil : color->name;
}

static CGColorRef newCGColor(NSString* name) {
  using Layout = struct CGColor;
  return new Layout{name};
}

@implementation NSColor {
  NSString* name;
}

static NSColor* named(NSString* name) {
  static NSMutableDictionary<NSString*, NSColor*>* all = [NSMutableDictionary dictionary];
  NSColor* color = all[name];
  if (color == nil) {
    color = [[NSColor alloc] init];
    color->name = name;
    all[name] = color;
  }
  return color;
}

+ (NSColor*)systemOrangeColor {
  return named(@"systemOrangeColor");
}
+ (NSColor*)systemRedColor {
  return named(@"systemRedColor");
}
+ (NSColor*)controlBackgroundColor {
  return named(@"controlBackgroundColor");
}

// In the shade of the appearance that is drawn in.
- (CGColorRef)CGColor {
  static std::map<std::string, CGColorRef>& all = *new std::map<std::string, CGColorRef>;
  if (desktop.drawing == nil) violation("A dynamic colour is resolved in no certain appearance");
  NSString* shade = isDark ? [name stringByAppendingString:@", dark"] : name;
  auto& color = all[shade.UTF8String];
  if (color == nullptr) color = newCGColor(shade);
  return color;
}

- (id)copyWithZone:(NSZone*)zone {
  return self;
}

- (NSString*)recordedName {
  return name;
}

@end

@implementation NSAppearance

- (void)performAsCurrentDrawingAppearance:(void (^)(void))block {
  NSAppearance* before = desktop.drawing;
  desktop.drawing = self;
  block();
  desktop.drawing = before;
}

@end
