#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSImageSymbolConfiguration {
  NSColor* color;
}

+ (instancetype)configurationWithHierarchicalColor:(NSColor*)hierarchicalColor {
  NSImageSymbolConfiguration* made = [[self alloc] init];
  made->color = expect(hierarchicalColor, NSColor.class);
  return made;
}

- (NSColor*)recordedHierarchicalColor {
  return color;
}

@end

@implementation NSImage {
  NSString* symbolName;
  NSImageSymbolConfiguration* configuration;
  BOOL isTemplate;
}

@synthesize accessibilityDescription;

+ (instancetype)imageWithSystemSymbolName:(NSString*)name
                 accessibilityDescription:(NSString*)description {
  expect(name, NSString.class);
  expectOrNil(description, NSString.class);
  if (!knownSymbols.contains(name.UTF8String)) return nil;
  NSImage* made = [[self alloc] init];
  made->symbolName = [name copy];
  made->isTemplate = YES;  // as every symbol is at first
  made.accessibilityDescription = description;
  return made;
}

- (NSImage*)imageWithSymbolConfiguration:(NSImageSymbolConfiguration*)newConfiguration {
  NSImage* made = [[NSImage alloc] init];
  made->symbolName = symbolName;
  made->isTemplate = isTemplate;
  made->configuration = expect(newConfiguration, NSImageSymbolConfiguration.class);
  made.accessibilityDescription = self.accessibilityDescription;
  return made;
}

- (BOOL)isTemplate {
  return isTemplate;
}

- (void)setTemplate:(BOOL)newTemplate {
  isTemplate = newTemplate;
}

- (NSString*)recordedSymbolName {
  return symbolName;
}

- (NSImageSymbolConfiguration*)recordedConfiguration {
  return configuration;
}

@end
