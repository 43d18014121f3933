#pragma once

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The members of the JSON object in `bytes` that have one of the `keys` and a string value (any
/// order of members, UTF-8 in and out), or none if the bytes are not JSON or the top level is not
/// an object. JSON may be nested in 500 levels; whether more are read, how much is too much, and
/// what is taken that is almost JSON, is the platform's choice. Any thread; never fails, however
/// deep or long the text.
std::optional<std::map<std::string, std::string>> jsonStringMembers(
    std::string_view bytes, std::initializer_list<std::string_view> keys);

}  // namespace platform
