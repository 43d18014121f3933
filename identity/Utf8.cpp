#include "identity/Utf8.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace pellix {
namespace {

constexpr std::array<std::string_view, 18> blanks = {
    "\t",     " ",      "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
    "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u202F", "\u205F", "\u3000"};

struct SequenceRule {
  unsigned char firstLow, firstHigh;    // the leading byte
  unsigned char secondLow, secondHigh;  // the byte after it; those after that are 80..BF
  std::size_t length;
};

constexpr std::array<SequenceRule, 9> sequenceRules = {{
    {0x00, 0x7F, 0x00, 0x00, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2},
    {0xE0, 0xE0, 0xA0, 0xBF, 3},  // no overlong forms
    {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3},  // no surrogates
    {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4},  // no overlong forms
    {0xF1, 0xF3, 0x80, 0xBF, 4},
    {0xF4, 0xF4, 0x80, 0x8F, 4},  // nothing above U+10FFFF
}};

constexpr bool within(char byte, unsigned char low, unsigned char high) {
  const auto value = static_cast<unsigned char>(byte);
  return low <= value && value <= high;
}

// The length of the well-formed sequence at the start of `bytes`, or 0.
std::size_t sequenceLength(std::string_view bytes) {
  for (const SequenceRule& rule : sequenceRules) {
    if (!within(bytes[0], rule.firstLow, rule.firstHigh)) continue;
    if (bytes.size() < rule.length) return 0;
    if (rule.length > 1 && !within(bytes[1], rule.secondLow, rule.secondHigh)) return 0;
    for (std::size_t at = 2; at < rule.length; ++at)
      if (!within(bytes[at], 0x80, 0xBF)) return 0;
    return rule.length;
  }
  return 0;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = sequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string_view trimmedOfBlanks(std::string_view text) {
  const auto leading = [&](std::string_view blank) { return text.starts_with(blank); };
  const auto trailing = [&](std::string_view blank) { return text.ends_with(blank); };
  auto found = blanks.begin();
  while ((found = std::find_if(blanks.begin(), blanks.end(), leading)) != blanks.end())
    text.remove_prefix(found->size());
  while ((found = std::find_if(blanks.begin(), blanks.end(), trailing)) != blanks.end())
    text.remove_suffix(found->size());
  return text;
}

}  // namespace pellix
