#include "install/LaunchAgents.h"

#include <map>
#include <string>

#include "install/Paths.h"
#include "platform/Bundle.h"
#include "platform/FileManager.h"

namespace pellix::Installer {
namespace {

namespace FileManager = platform::FileManager;

constexpr std::string_view serviceTemplate = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>Label</key><string>{label}</string>
  <key>ProgramArguments</key>
  <array>
    <string>{guard}</string>
    <string>run</string>
    <string>--port</string>
    <string>{port}</string>
  </array>
  <key>RunAtLoad</key><true/>
  <key>KeepAlive</key><true/>
  <key>ProcessType</key><string>Background</string>
  <key>EnvironmentVariables</key>
  <dict><key>VLX_QUIET</key><string>1</string></dict>
  <key>StandardOutPath</key><string>{logs}/launchd.out.log</string>
  <key>StandardErrorPath</key><string>{logs}/launchd.err.log</string>
</dict>
</plist>)";

// Not kept alive: launchd must not overrule a user who quits.
constexpr std::string_view menubarTemplate = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>Label</key><string>{label}</string>
  <key>ProgramArguments</key>
  <array>
    <string>{executable}</string>
  </array>
  <key>RunAtLoad</key><true/>
  <key>KeepAlive</key><false/>
  <key>ProcessType</key><string>Interactive</string>
</dict>
</plist>)";

/// The template with each {name} replaced by its value as it is: all of them are paths and labels
/// under this program's control.
std::string filled(std::string_view rest, const std::map<std::string_view, std::string>& values) {
  std::string text;
  for (auto open = rest.find('{'); open != std::string_view::npos; open = rest.find('{')) {
    const auto close = rest.find('}');
    text.append(rest.substr(0, open)).append(values.at(rest.substr(open + 1, close - open - 1)));
    rest.remove_prefix(close + 1);
  }
  return text.append(rest);
}

}  // namespace

void writeServiceLaunchAgent() {
  const std::filesystem::path logDir = Paths::supportDir() / "logs/";
  FileManager::createDirectoryWithIntermediateDirectories(logDir);
  FileManager::writeAtomically(
      filled(serviceTemplate, {{"label", std::string(Paths::serviceLabel)},
                               {"guard", Paths::guardBinary()},
                               {"port", std::to_string(servicePort)},
                               {"logs", logDir.parent_path()}}),  // without the slash
      Paths::launchAgent());
}

void writeMenubarLaunchAgent() {
  const std::string executable = platform::Bundle::executableUrl().value_or("");
  if (executable.empty()) return;
  FileManager::writeAtomically(filled(menubarTemplate, {{"label", std::string(Paths::menubarLabel)},
                                                        {"executable", executable}}),
                               Paths::menubarLaunchAgent());
}

}  // namespace pellix::Installer
