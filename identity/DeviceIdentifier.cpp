#include "identity/DeviceIdentifier.h"

#include "identity/Utf8.h"
#include "install/Paths.h"
#include "model/Status.h"
#include "platform/Error.h"
#include "platform/FileManager.h"
#include "platform/Hardware.h"
#include "platform/Json.h"
#include "platform/Task.h"

namespace pellix::Installer {
namespace {

constexpr std::string_view hardwarePrefix = "HW-UUID-";
constexpr std::string_view generatedPrefix = "GEN-";

// A line ends at a line feed, but not at one right after a carriage return: the pair counts as one
// character, which is none of the separators.
std::size_t findLineEnd(std::string_view text) {
  for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1))
    if (at == 0 || text[at - 1] != '\r') return at;
  return std::string_view::npos;
}

std::optional<std::string> identifierLine(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = findLineEnd(text);
    const std::string_view line = trimmedOfBlanks(text.substr(0, end));
    if (line.starts_with(hardwarePrefix) || line.starts_with(generatedPrefix))
      return std::string(line);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return std::nullopt;
}

std::optional<std::string> serviceIdentifier() {
  if (!platform::FileManager::fileExists(Paths::guardBinary())) return std::nullopt;
  platform::Task task(Paths::guardBinary(), {"id", "--json"}, platform::Task::Output::captured);
  try {
    task.launch();
  } catch (const platform::Error&) {
    return std::nullopt;
  }
  task.waitUntilExit();
  return deviceIdentifierInOutput(task.readStandardOutputToEnd());
}

std::string hardwareIdentifier() {
  const auto uuid = platform::platformUuid();
  return uuid ? std::string(hardwarePrefix) + *uuid : std::string(placeholder);
}

}  // namespace

std::optional<std::string> deviceIdentifierInOutput(std::string_view output) {
  // The service's own JSON is trusted whole; loose text only under a known prefix.
  if (const auto members = platform::jsonStringMembers(output, {"device_id"})) {
    const auto deviceId = members->find("device_id");
    if (deviceId != members->end() && !deviceId->second.empty()) return deviceId->second;
  }
  if (!isValidUtf8(output)) return std::nullopt;
  return identifierLine(output);
}

std::string deviceIdentifier() {
  if (auto identifier = serviceIdentifier()) return *std::move(identifier);
  return hardwareIdentifier();
}

}  // namespace pellix::Installer
