#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The members with a string value of the JSON object in `bytes` (any order of members, UTF-8 in
/// and out), or none if the bytes are not JSON or the top level is not an object. Members of any
/// other type are left out. JSON may be nested in 500 levels; whether more are read, and what is
/// taken that is almost JSON, is the platform's choice. Any thread; never fails, however deep or
/// long the text.
std::optional<std::map<std::string, std::string>> jsonStringMembers(std::string_view bytes);

}  // namespace platform
