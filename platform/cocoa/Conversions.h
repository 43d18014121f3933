#pragma once

#if !__has_feature(objc_arc)
#error "Compile with -fobjc-arc: ownership in this folder is counted by the compiler."
#endif

#import <AppKit/AppKit.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Color.h"
#include "platform/Error.h"
#include "platform/Url.h"

/// Every conversion between the seam's values and the platform's objects; other files hold none.
namespace platform {

/// Never nil, and keeps NULs: bytes that are not UTF-8 are read as Latin-1, which fits any.
inline NSString* nsString(std::string_view text) {
  // At the start of what is decoded, a byte-order mark is lost.
  if (text.starts_with("\xEF\xBB\xBF"))
    return [nsString("-" + std::string(text)) substringFromIndex:1];
  const auto decode = [text](NSStringEncoding encoding) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:encoding];
  };
  NSString* decoded = decode(NSUTF8StringEncoding);
  return decoded != nil ? decoded : decode(NSISOLatin1StringEncoding);
}

/// Empty for nil.
inline std::string fromNSData(NSData* data) {
  return {static_cast<const char*>(data.bytes), data.length};
}

/// In UTF-8, NULs kept; a surrogate without its partner becomes a substitute. Empty for nil.
inline std::string fromNSString(NSString* text) {
  return fromNSData([text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES]);
}

/// Nil for an empty text: a tool tip that is not there, rather than an empty one.
inline NSString* nsStringOrNil(std::string_view text) {
  return text.empty() ? nil : nsString(text);
}

/// A path that ends in a slash names a folder, so that nothing has to look at the disk to tell.
inline NSURL* nsUrl(const std::filesystem::path& path) {
  return [NSURL fileURLWithPath:nsString(path.native()) isDirectory:!path.has_filename()];
}

/// Not nil: the text of a `Url` is what the platform itself spelled.
inline NSURL* nsUrl(const Url& url) {
  return [NSURL URLWithString:nsString(url.absoluteString())];
}

/// The file-system path of a file URL, without a slash at its end.
inline std::filesystem::path fromNSUrl(NSURL* url) {
  return fromNSString(url.path);
}

/// Keeps `error` itself, for `nsError`: every copy of the result owns it.
inline Error fromNSError(NSError* error) {
  const auto owner = std::make_shared<NSError*>(error);
  return {fromNSString(error.domain), error.code, fromNSString(error.localizedDescription),
          std::shared_ptr<const void>(owner, (__bridge const void*)error)};
}

/// The very object that `error` was made from, else one with the same fields.
inline NSError* nsError(const Error& error) {
  if (error.native) return (__bridge NSError*)error.native.get();
  return [NSError errorWithDomain:nsString(error.domain)
                             code:error.code
                         userInfo:@{NSLocalizedDescriptionKey : nsString(error.description)}];
}

/// Dynamic: it takes its shade from the appearance that it is drawn in.
inline NSColor* nsColor(Color color) {
  switch (color) {
    case Color::systemOrange: return NSColor.systemOrangeColor;
    case Color::systemRed: return NSColor.systemRedColor;
    case Color::controlBackground: return NSColor.controlBackgroundColor;
  }
}

}  // namespace platform
