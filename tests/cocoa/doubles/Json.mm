#import <Foundation/Foundation.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "doubles/Doubles.h"
#include "runtime/Runtime.h"

namespace {

// RFC 8259, with what Apple's reader adds to it: an object or array at the top, 512 levels at most,
// numbers that a double holds, no surrogate without its partner. Nil for anything else.
class Reader {
 public:
  explicit Reader(std::string bytes) : text(std::move(bytes)) {}

  id document() {
    const char first = next();
    if (first != '{' && first != '[') return nil;
    const id top = value(1);
    return next() == '\0' && position == text.size() ? top : nil;
  }

 private:
  char at() const { return position < text.size() ? text[position] : '\0'; }

  /// The next character that is not a blank.
  char next() {
    position = std::min(text.find_first_not_of(" \t\r\n", position), text.size());
    return at();
  }

  bool take(char wanted) {
    if (next() != wanted) return false;
    position++;
    return true;
  }

  bool take(const std::string& word) {
    if (text.compare(position, word.size(), word) != 0) return false;
    position += word.size();
    return true;
  }

  id value(int depth) {
    constexpr int maximumDepth = 512;
    if (depth > maximumDepth) return nil;
    switch (next()) {
      case '{': return object(depth);
      case '[': return array(depth);
      case '"': return string();
      case 't': return take("true") ? @YES : nil;
      case 'f': return take("false") ? @NO : nil;
      case 'n': return take("null") ? [NSNull null] : nil;
      default: return number();
    }
  }

  id object(int depth) {
    NSMutableDictionary* members = [NSMutableDictionary dictionary];
    position++;
    if (take('}')) return members;
    do {
      if (next() != '"') return nil;
      const id key = string();
      if (key == nil || !take(':')) return nil;
      const id member = value(depth + 1);
      if (member == nil) return nil;
      members[key] = member;
    } while (take(','));
    return take('}') ? members : nil;
  }

  id array(int depth) {
    NSMutableArray* elements = [NSMutableArray array];
    position++;
    if (take(']')) return elements;
    do {
      const id element = value(depth + 1);
      if (element == nil) return nil;
      [elements addObject:element];
    } while (take(','));
    return take(']') ? elements : nil;
  }

  id number() {
    const std::size_t start = position;
    take("-");
    if (!take("0") && !digits()) return nil;
    if (take(".") && !digits()) return nil;
    if (at() == 'e' || at() == 'E') {
      position++;
      if (!take("+")) take("-");
      if (!digits()) return nil;
    }
    const double read = std::strtod(text.substr(start, position - start).c_str(), nullptr);
    return std::isfinite(read) ? @(read) : nil;
  }

  bool digits() {
    const std::size_t start = position;
    while (at() >= '0' && at() <= '9') position++;
    return position > start;
  }

  // In UTF-16, where escapes of surrogates meet.
  id string() {
    std::vector<unichar> units = {'.'};  // GNUstep drops a byte-order mark that a text starts with
    position++;
    while (at() != '"') {
      if (position >= text.size() || static_cast<unsigned char>(at()) < ' ') return nil;
      if (at() == '\\') {
        const int unit = escape();
        if (unit < 0) return nil;
        units.push_back(static_cast<unichar>(unit));
      } else {
        const std::size_t end = endOfPlainText();
        const std::string plain = "." + text.substr(position, end - position);
        NSString* decoded = [[NSString alloc] initWithBytes:plain.data()
                                                     length:plain.size()
                                                   encoding:NSUTF8StringEncoding];
        if (decoded == nil) return nil;
        const auto start = units.size();
        units.resize(start + decoded.length - 1);
        [decoded getCharacters:units.data() + start range:NSMakeRange(1, decoded.length - 1)];
        position = end;
      }
    }
    position++;
    if (!arePaired(units)) return nil;
    return [[NSString stringWithCharacters:units.data() length:units.size()] substringFromIndex:1];
  }

  std::size_t endOfPlainText() const {
    std::size_t end = position;
    while (end < text.size() && text[end] != '"' && text[end] != '\\' &&
           static_cast<unsigned char>(text[end]) >= ' ')
      end++;
    return end;
  }

  int escape() {
    static const std::string letters = "\"\\/bfnrt";
    static const std::string meanings = "\"\\/\b\f\n\r\t";
    position++;
    const char letter = at();
    position++;
    if (letter == 'u') {
      const std::string digitsOfUnit = text.substr(std::min(position, text.size()), 4);
      if (digitsOfUnit.size() < 4 ||
          digitsOfUnit.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return -1;
      position += 4;
      return std::stoi(digitsOfUnit, nullptr, 16);
    }
    const auto found = letters.find(letter);
    return letter == '\0' || found == std::string::npos ? -1 : meanings[found];
  }

  static bool arePaired(const std::vector<unichar>& units) {
    const auto isHigh = [](unichar unit) { return unit >= 0xD800 && unit <= 0xDBFF; };
    const auto isLow = [](unichar unit) { return unit >= 0xDC00 && unit <= 0xDFFF; };
    for (std::size_t i = 0; i < units.size(); i++) {
      if (isLow(units[i])) return false;
      if (isHigh(units[i]) && (++i == units.size() || !isLow(units[i]))) return false;
    }
    return true;
  }

  std::string text;
  std::size_t position = 0;
};

// UTF-8, or UTF-16 or UTF-32 as its zeros tell.
std::string utf8(NSData* data) {
  std::string bytes(static_cast<const char*>(data.bytes), data.length);
  const auto isZero = [&bytes](std::size_t i) { return i < bytes.size() && bytes[i] == '\0'; };
  NSStringEncoding encoding = NSUTF8StringEncoding;
  if (bytes.size() >= 4 && isZero(0) && isZero(1))
    encoding = NSUTF32BigEndianStringEncoding;
  else if (bytes.size() >= 4 && isZero(1) && isZero(2) && isZero(3))
    encoding = NSUTF32LittleEndianStringEncoding;
  else if (isZero(0))
    encoding = NSUTF16BigEndianStringEncoding;
  else if (isZero(1))
    encoding = NSUTF16LittleEndianStringEncoding;
  if (encoding != NSUTF8StringEncoding) {
    NSString* decoded = [[NSString alloc] initWithData:data encoding:encoding];
    bytes = decoded == nil ? "" : decoded.UTF8String;
  }
  const std::string mark = "\xEF\xBB\xBF";
  return bytes.starts_with(mark) ? bytes.substr(mark.size()) : bytes;
}

}  // namespace

@implementation NSJSONSerialization

+ (id)JSONObjectWithData:(NSData*)data
                 options:(NSJSONReadingOptions)options
                   error:(NSError**)error {
  if (data == nil) doubles::raise(NSInvalidArgumentException, @"data parameter is nil");
  doubles::expect(data, NSData.class);
  if (options != 0) runtime::violation("JSON is read with options");
  const id document = Reader(utf8(data)).document();
  if (document == nil && error != nullptr)
    *error = [NSError errorWithDomain:NSCocoaErrorDomain code:3840 userInfo:@{}];
  return document;
}

@end
