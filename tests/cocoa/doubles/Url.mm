#import <Foundation/Foundation.h>

#include <regex>
#include <string>

#include "doubles/Doubles.h"

/// Keeps the text that it was made from, which GNUstep's URLs do not.
@interface RecordingURL : NSURL {
 @public
  NSString* text;
}
@end

@implementation RecordingURL

- (NSString*)absoluteString {
  return text;
}

@end

@implementation NSURL (Recorded)

// As Apple's up to macOS 13: nil for a text that is no URL.
+ (instancetype)URLWithString:(NSString*)string {
  doubles::expect(string, NSString.class);
  static const std::regex url(
      R"([A-Za-z][A-Za-z0-9+.-]*://(\[[0-9A-Fa-f:.]+\]|[A-Za-z0-9.%_~-]*)(:[0-9]*)?([/?#][!-~]*)?)");
  if (!std::regex_match(string.UTF8String, url)) return nil;
  RecordingURL* made = [[RecordingURL alloc] initWithString:string];
  made->text = [string copy];
  return made;
}

@end
