#include "model/TrustState.h"

#include <algorithm>
#include <cstddef>

namespace pellix {
namespace {

using platform::Color;

struct Row {
  std::string_view rawValue, symbol, summary;
  std::optional<Color> tint;
  std::string_view glyph;
};

// Colour asks for action: orange where the user can act, red where only IT can. A healthy device
// has none, so that it never draws the eye.
// clang-format off
constexpr std::array<Row, allTrustStates.size()> table = {{
    {"authorized",   "checkmark.shield.fill",        "Device authorized",      {},                  "◆"},
    {"not_enrolled", "exclamationmark.shield",       "Not authorized yet",     Color::systemOrange, "◇"},
    {"offline",      "shield.slash",                 "Cannot reach WordPress", {},                  "◌"},
    {"stale",        "clock.badge.exclamationmark",  "Trust expired",          Color::systemOrange, "◑"},
    {"revoked",      "xmark.shield.fill",            "Revoked by IT",          Color::systemRed,    "✕"},
    {"unknown",      "shield",                       "Checking…",              {},                  "◍"},
}};
// clang-format on

constexpr const Row& row(TrustState state) {
  return table[static_cast<std::size_t>(state)];
}

}  // namespace

std::optional<TrustState> trustStateWithRawValue(std::string_view rawValue) {
  const auto found =
      std::find_if(allTrustStates.begin(), allTrustStates.end(),
                   [rawValue](TrustState state) { return row(state).rawValue == rawValue; });
  if (found == allTrustStates.end()) return std::nullopt;
  return *found;
}

std::string rawValue(TrustState state) {
  return std::string(row(state).rawValue);
}
std::string symbol(TrustState state) {
  return std::string(row(state).symbol);
}
std::string summary(TrustState state) {
  return std::string(row(state).summary);
}
std::optional<Color> tint(TrustState state) {
  return row(state).tint;
}
std::string glyph(TrustState state) {
  return std::string(row(state).glyph);
}

}  // namespace pellix

std::size_t std::hash<pellix::TrustState>::operator()(pellix::TrustState state) const noexcept {
  return std::hash<std::string_view>{}(pellix::row(state).rawValue);
}
