#include "doubles/AppKit/Desktop.h"

using namespace doubles;

@implementation NSWorkspace

+ (NSWorkspace*)sharedWorkspace {
  static NSWorkspace* only = [[NSWorkspace alloc] init];
  return only;
}

- (BOOL)openURL:(NSURL*)url {
  expect(url, NSURL.class);
  openedUrls.emplace_back(url.absoluteString.UTF8String);
  return YES;
}

@end
