#pragma once

#include <string_view>

/// What a fuzz target consists of: one function, called with each input of the fuzzer or of the
/// corpus.
namespace fuzz {

/// Whether the second opinions hold for this platform. Where they do not, its readers are the
/// system's own, and all that an input must not do is harm.
inline constexpr bool hasReferences = PELLIX_FUZZ_REFERENCES;

/// Checks every property of the target for `input`.
void checkInput(std::string_view input);

/// Ends the process, and so reports a finding, unless the property holds.
void require(bool holds, const char* property);

}  // namespace fuzz
