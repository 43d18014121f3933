#pragma once

#include <filesystem>
#include <optional>
#include <string>

/// The main bundle: the running program and what it carries with it. Any thread; nothing fails.
namespace platform::Bundle {

/// The absolute path of the running executable, or none if it cannot be told.
std::optional<std::filesystem::path> executableUrl();

/// The file of the bundle's resources with exactly that name, which is not empty, or none.
std::optional<std::filesystem::path> urlForResource(const std::string& name);

}  // namespace platform::Bundle
