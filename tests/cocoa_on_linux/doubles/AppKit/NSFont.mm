#include "doubles/AppKit/Desktop.h"

using namespace doubles;

const NSFontWeight NSFontWeightRegular = 0;
const NSFontWeight NSFontWeightMedium = 0.23;
const NSFontWeight NSFontWeightSemibold = 0.3;

@implementation NSFont {
  BOOL isMonospaced;
  NSFontWeight weight;
}

@synthesize pointSize = _pointSize;

static NSFont* font(CGFloat size, NSFontWeight weight, BOOL isMonospaced) {
  NSFont* made = [[NSFont alloc] init];
  made->_pointSize = size;
  made->weight = weight;
  made->isMonospaced = isMonospaced;
  return made;
}

+ (NSFont*)systemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight {
  return font(fontSize, weight, NO);
}

+ (NSFont*)monospacedSystemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight {
  return font(fontSize, weight, YES);
}

- (BOOL)recordedIsMonospaced {
  return isMonospaced;
}

- (NSFontWeight)recordedWeight {
  return weight;
}

@end
