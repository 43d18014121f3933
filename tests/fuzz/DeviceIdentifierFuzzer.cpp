#include <string>

#include "identity/DeviceIdentifier.h"
#include "identity/Utf8.h"
#include "platform/Json.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/References.h"

namespace {

constexpr std::u32string_view blanks =
    U"\t \u00A0\u1680\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u2007\u2008\u2009\u200A\u202F"
    U"\u205F\u3000";

std::optional<std::string> reference(const std::u32string& text) {
  std::u32string line;
  const auto identifier = [&]() -> std::optional<std::string> {
    const auto first = line.find_first_not_of(blanks);
    if (first == line.npos) return {};
    const auto trimmed = line.substr(first, line.find_last_not_of(blanks) - first + 1);
    if (!trimmed.starts_with(U"HW-UUID-") && !trimmed.starts_with(U"GEN-")) return {};
    return fuzz::utf8(trimmed);
  };
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != U'\n' || (at > 0 && text[at - 1] == U'\r')) {
      line += text[at];
      continue;
    }
    if (const auto found = identifier()) return found;
    line.clear();
  }
  return identifier();
}

}  // namespace

void fuzz::checkInput(std::string_view input) {
  const auto found = pellix::Installer::deviceIdentifierInOutput(input);
  if constexpr (!hasReferences) return;
  const auto text = codePoints(input);
  require(pellix::isValidUtf8(input) == text.has_value(), "UTF-8 is told from other bytes");

  if (const auto members = platform::jsonStringMembers(input, {"device_id"})) {
    const auto deviceId = members->find("device_id");
    if (deviceId != members->end() && !deviceId->second.empty()) {
      require(found == deviceId->second, "the JSON's identifier is taken as it stands");
      require(codePoints(*found).has_value(), "the JSON's identifier is UTF-8");
      return;
    }
  }
  require(found == (text ? reference(*text) : std::nullopt),
          "the first line with a known prefix is taken, trimmed");
}
