#include "tests/fuzz/References.h"

#include <cmath>
#include <cstdlib>

namespace fuzz {

std::optional<std::u32string> codePoints(std::string_view bytes) {
  std::u32string text;
  for (std::size_t at = 0; at < bytes.size();) {
    const auto first = static_cast<unsigned char>(bytes[at]);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    char32_t point = length == 1 ? first : first & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length && at + i < bytes.size(); ++i)
      point = point << 6 | (static_cast<unsigned char>(bytes[at + i]) & 0x3Fu);
    // Whatever is not the one spelling of a scalar value differs from that spelling.
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return {};
    if (utf8({&point, 1}) != bytes.substr(at, length)) return {};
    text += point;
    at += length;
  }
  return text;
}

std::string utf8(std::u32string_view text) {
  std::string bytes;
  for (const char32_t point : text) {
    const auto put = [&](unsigned mark, unsigned shift) {
      bytes += static_cast<char>(mark | (point >> shift & (mark == 0 ? 0x7Fu : 0x3Fu)));
    };
    if (point < 0x80) {
      put(0, 0);
    } else if (point < 0x800) {
      put(0xC0, 6), put(0x80, 0);
    } else if (point < 0x10000) {
      put(0xE0, 12), put(0x80, 6), put(0x80, 0);
    } else {
      put(0xF0, 18), put(0x80, 12), put(0x80, 6), put(0x80, 0);
    }
  }
  return bytes;
}

namespace {

/// Each function takes one production from the front of the text and says whether it was there.
class JsonGrammar {
 public:
  explicit JsonGrammar(std::string_view text) : rest(text) {}

  bool isObject() {
    space();
    return rest.starts_with('{') && value(1) && rest.empty();
  }

 private:
  bool take(std::string_view literal) {
    if (!rest.starts_with(literal)) return false;
    rest.remove_prefix(literal.size());
    return true;
  }

  std::string_view takeAll(std::string_view characters) {
    const auto length = std::min(rest.find_first_not_of(characters), rest.size());
    const auto taken = rest.substr(0, length);
    rest.remove_prefix(length);
    return taken;
  }

  void space() { takeAll(" \t\n\r"); }

  // A value and the white space on both its sides.
  bool value(int depth) {
    space();
    const bool valid = rest.starts_with('{')   ? list(depth, "{", "}")
                       : rest.starts_with('[') ? list(depth, "[", "]")
                       : rest.starts_with('"')
                           ? string()
                           : take("true") || take("false") || take("null") || number();
    space();
    return valid;
  }

  bool list(int depth, std::string_view open, std::string_view close) {
    if (depth > 1024 || !take(open)) return false;
    space();
    if (take(close)) return true;
    do {
      if (open == "{") {
        space();
        if (!string()) return false;
        space();
        if (!take(":")) return false;
      }
      if (!value(depth + 1)) return false;
    } while (take(","));
    return take(close);
  }

  bool string() {
    if (!take("\"")) return false;
    while (!rest.empty() && !take("\"")) {
      if (static_cast<unsigned char>(rest.front()) < 0x20) return false;
      if (take("\\u")) {
        for (int i = 0; i < 4; ++i) {
          if (rest.find_first_of("0123456789abcdefABCDEF") != 0) return false;
          rest.remove_prefix(1);
        }
      } else if (take("\\")) {
        if (rest.find_first_of("\"\\/bfnrt") != 0) return false;
        rest.remove_prefix(1);
      } else {
        rest.remove_prefix(1);
      }
      if (rest.empty()) return false;
    }
    return true;
  }

  bool number() {
    constexpr auto digits = "0123456789";
    const std::string_view start = rest;
    take("-");
    if (!take("0") && takeAll(digits).empty()) return false;
    if (take(".") && takeAll(digits).empty()) return false;
    if (take("e") || take("E")) {
      if (!take("+")) take("-");
      if (takeAll(digits).empty()) return false;
    }
    // One that no double holds, being too large or too close to 0, is refused like one that is
    // misspelt.
    const std::string text(start.substr(0, start.size() - rest.size()));
    const double value = std::strtod(text.c_str(), nullptr);
    const bool isZero =
        text.substr(0, text.find_first_of("eE")).find_first_of("123456789") == std::string::npos;
    return std::isfinite(value) && (value != 0 || isZero);
  }

  std::string_view rest;
};

}  // namespace

bool isJsonObject(std::string_view bytes) {
  if (!codePoints(bytes)) return false;
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  return JsonGrammar(bytes).isObject();
}

}  // namespace fuzz
