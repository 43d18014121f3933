#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Color.h"

namespace pellix {

// To add a state: its case below, in the product's order, and in allTrustStates; its row in
// TrustState.cpp, with a symbol that the oldest macOS has and a tint that follows the rule for
// colours above the table, and, for every tool and test in Python, in tests/desktop/product.py; a
// drawing of its symbol, unlike every other, in resources/symbols. The page of standin/velmor-guard
// has colours of its own. Each other place that must know the state is named by
// `/usr/bin/python3 -m pytest tests/docs tests/kit/test_contract.py tests/standin
// tests/packaging/test_doctor.py`, and `script/run --pictures` makes its picture.

/// The device's standing with the managing site. Everything that is shown about a state comes from
/// the functions below, which are total, pure and safe on any thread.
enum class TrustState { authorized, notEnrolled, offline, stale, revoked, unknown };

inline constexpr std::array allTrustStates = {TrustState::authorized, TrustState::notEnrolled,
                                              TrustState::offline,    TrustState::stale,
                                              TrustState::revoked,    TrustState::unknown};

/// The state with exactly that raw value (no trimming, no case folding), or none.
std::optional<TrustState> trustStateWithRawValue(std::string_view rawValue);

/// The string that stands for the state on the wire: docs/service-contract.md says which. The
/// program itself only reads them.
std::string rawValue(TrustState state);

/// The name of the system symbol image.
std::string symbol(TrustState state);

/// One line for the user.
std::string summary(TrustState state);

/// The colour of the icon, or none for the menu bar's own colouring.
std::optional<platform::Color> tint(TrustState state);

/// One character that stands in the menu bar where the system does not know the symbol.
std::string glyph(TrustState state);

}  // namespace pellix

/// The hash of the raw value, with which docs/service-contract.md identifies a state.
template <>
struct std::hash<pellix::TrustState> {
  size_t operator()(pellix::TrustState state) const noexcept;
};
