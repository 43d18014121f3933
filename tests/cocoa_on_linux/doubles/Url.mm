#import <Foundation/Foundation.h>

#include <regex>
#include <string>

#include "doubles/Doubles.h"

/// Keeps the text that it was made from, which GNUstep's URLs do not, and would not take either.
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

// As Apple's up to macOS 13: nil for a text with a character that no URL has, and for little else.
// A port is never looked at, nor is an empty text refused.
+ (instancetype)URLWithString:(NSString*)string {
  doubles::expect(string, NSString.class);
  static const std::regex url(
      R"([A-Za-z][A-Za-z0-9+.-]*://(\[[0-9A-Fa-f:.]+\]|[A-Za-z0-9.%_~-]*)(:[^/?#\s]*)?([/?#](?:[!#-;=?-Z_a-z~]|%[0-9A-Fa-f]{2})*)?)");
  if (string.length > 0 && !std::regex_match(string.UTF8String, url)) return nil;
  RecordingURL* made = [[RecordingURL alloc] initWithString:@"http:"];
  made->text = [string copy];
  return made;
}

@end
