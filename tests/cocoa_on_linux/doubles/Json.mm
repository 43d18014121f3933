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
// numbers that a double holds, no surrogate without its partner, and a comma after the last member
// or element. Nil for anything else.
class Reader {
 public:
  explicit Reader(std::string bytes) : text(std::move(bytes)) {}

  id document() {
    const char first = next();
    if (first != '{' && first != '[') return nil;
    const id top = value();
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

  id value() {
    switch (next()) {
      case '{': return nested(&Reader::object);
      case '[': return nested(&Reader::array);
      case '"': return string();
      case 't': return take("true") ? @YES : nil;
      case 'f': return take("false") ? @NO : nil;
      case 'n': return take("null") ? [NSNull null] : nil;
      default: return number();
    }
  }

  id nested(id (Reader::*list)()) {
    constexpr int maximumDepth = 512;
    if (depth == maximumDepth) return nil;
    depth++;
    const id read = (this->*list)();
    depth--;
    return read;
  }

  id object() {
    NSMutableDictionary* members = [NSMutableDictionary dictionary];
    position++;
    do {
      if (take('}')) return members;
      if (next() != '"') return nil;
      const id key = string();
      if (key == nil || !take(':')) return nil;
      const id member = value();
      if (member == nil) return nil;
      members[key] = member;
    } while (take(','));
    return take('}') ? members : nil;
  }

  id array() {
    NSMutableArray* elements = [NSMutableArray array];
    position++;
    do {
      if (take(']')) return elements;
      const id element = value();
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

  // In UTF-16, where escapes of surrogates meet. Core Foundation drops a byte-order mark that a
  // text starts with, unless it is spelt as an escape.
  id string() {
    std::vector<unichar> units = {'.'};  // GNUstep drops one as well, however it is spelt
    position++;
    take("\xEF\xBB\xBF");
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
  int depth = 0;
};

struct Encoding {
  NSStringEncoding name;
  std::size_t markSize;
};

// As a byte-order mark tells, else the zeros around a first character that is ASCII.
Encoding encodingOf(const std::string& bytes) {
  using namespace std::string_literals;
  if (bytes.starts_with("\xEF\xBB\xBF")) return {NSUTF8StringEncoding, 3};
  if (bytes.starts_with("\0\0\xFE\xFF"s)) return {NSUTF32BigEndianStringEncoding, 4};
  if (bytes.starts_with("\xFF\xFE\0\0"s)) return {NSUTF32LittleEndianStringEncoding, 4};
  if (bytes.starts_with("\xFE\xFF")) return {NSUTF16BigEndianStringEncoding, 2};
  if (bytes.starts_with("\xFF\xFE")) return {NSUTF16LittleEndianStringEncoding, 2};
  std::string zeros;
  for (std::size_t i = 0; i < std::min<std::size_t>(bytes.size(), 4); i++)
    zeros += bytes[i] == '\0' ? '0' : 'x';
  if (zeros == "000x") return {NSUTF32BigEndianStringEncoding, 0};
  if (zeros == "x000") return {NSUTF32LittleEndianStringEncoding, 0};
  if (zeros.starts_with("0x") && zeros != "0xx0" && zeros != "0xxx")
    return {NSUTF16BigEndianStringEncoding, 0};
  if (zeros.starts_with("x0") && zeros != "x00x" && zeros != "x0xx")
    return {NSUTF16LittleEndianStringEncoding, 0};
  return {NSUTF8StringEncoding, 0};
}

std::string utf8(NSData* data) {
  std::string bytes(static_cast<const char*>(data.bytes), data.length);
  const Encoding encoding = encodingOf(bytes);
  bytes.erase(0, encoding.markSize);
  if (encoding.name == NSUTF8StringEncoding) return bytes;
  NSString* decoded = [[NSString alloc] initWithBytes:bytes.data()
                                               length:bytes.size()
                                             encoding:encoding.name];
  NSData* encoded = [decoded dataUsingEncoding:NSUTF8StringEncoding];
  return {static_cast<const char*>(encoded.bytes), encoded.length};
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
