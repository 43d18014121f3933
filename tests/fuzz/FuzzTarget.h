#pragma once

#include <string_view>

/// What a fuzz target consists of: one function, called with each input of the fuzzer or of the
/// corpus.
namespace fuzz {

/// Checks every property of the target for `input`.
void checkInput(std::string_view input);

/// Ends the process, and so reports a finding, unless the property holds.
void require(bool holds, const char* property);

}  // namespace fuzz
