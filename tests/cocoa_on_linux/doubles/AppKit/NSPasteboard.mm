#include "doubles/AppKit/Desktop.h"

using namespace doubles;

const NSPasteboardType NSPasteboardTypeString = @"public.utf8-plain-text";

@implementation NSPasteboard {
 @public
  NSMutableDictionary<NSPasteboardType, NSString*>* contents;
  NSInteger changeCount;
  BOOL isOwned;  // by this application
}

+ (NSPasteboard*)generalPasteboard {
  static NSPasteboard* only = [[NSPasteboard alloc] init];
  return only;
}

- (instancetype)init {
  self = [super init];
  contents = [NSMutableDictionary dictionary];
  return self;
}

- (NSInteger)clearContents {
  [contents removeAllObjects];
  isOwned = YES;
  return ++changeCount;
}

- (BOOL)setString:(NSString*)string forType:(NSPasteboardType)dataType {
  expect(string, NSString.class);
  expect(dataType, NSString.class);
  if (!isOwned) violation("Text is put on a pasteboard that was not cleared before");
  if (pasteboardRefuses) return NO;
  contents[dataType] = [string copy];
  return YES;
}

- (NSString*)stringForType:(NSPasteboardType)dataType {
  return contents[dataType];
}

- (NSArray<NSPasteboardType>*)types {
  return contents.allKeys;
}

@end

namespace doubles {

void copyElsewhere(NSString* text) {
  NSPasteboard* pasteboard = NSPasteboard.generalPasteboard;
  [pasteboard->contents removeAllObjects];
  pasteboard->contents[NSPasteboardTypeString] = text;
  pasteboard->contents[@"public.html"] = text;
  pasteboard->isOwned = NO;
}

}  // namespace doubles
