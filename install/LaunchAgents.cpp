#include "install/LaunchAgents.h"

#include <string>

#include "install/Paths.h"
#include "platform/Bundle.h"
#include "platform/FileManager.h"

namespace pellix::Installer {
namespace {

namespace FileManager = platform::FileManager;

// Values are spliced in as they are: they are paths and labels under this program's control.
std::string propertyList(const std::string& entries) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
)" + entries +
         R"(</dict>
</plist>)";
}

}  // namespace

void writeServiceLaunchAgent() {
  const std::string guard = Paths::guardBinary();
  const std::filesystem::path logDir = Paths::supportDir() / "logs/";
  FileManager::createDirectoryWithIntermediateDirectories(logDir);
  const std::string logs = logDir.parent_path();  // without the slash

  // The client polls the same port unless the user defaults name another.
  FileManager::writeAtomically(propertyList("  <key>Label</key><string>" +
                                            std::string(Paths::serviceLabel) + R"(</string>
  <key>ProgramArguments</key>
  <array>
    <string>)" + guard + R"(</string>
    <string>run</string>
    <string>--port</string>
    <string>8787</string>
  </array>
  <key>RunAtLoad</key><true/>
  <key>KeepAlive</key><true/>
  <key>ProcessType</key><string>Background</string>
  <key>EnvironmentVariables</key>
  <dict><key>VLX_QUIET</key><string>1</string></dict>
  <key>StandardOutPath</key><string>)" + logs +
                                            R"(/launchd.out.log</string>
  <key>StandardErrorPath</key><string>)" + logs +
                                            R"(/launchd.err.log</string>
)"),
                               Paths::launchAgent());
}

void writeMenubarLaunchAgent() {
  const std::string executable = platform::Bundle::executableUrl().value_or("");
  if (executable.empty()) return;

  // Not kept alive: launchd must not overrule a user who quits.
  FileManager::writeAtomically(propertyList("  <key>Label</key><string>" +
                                            std::string(Paths::menubarLabel) + R"(</string>
  <key>ProgramArguments</key>
  <array>
    <string>)" + executable + R"(</string>
  </array>
  <key>RunAtLoad</key><true/>
  <key>KeepAlive</key><false/>
  <key>ProcessType</key><string>Interactive</string>
)"),
                               Paths::menubarLaunchAgent());
}

}  // namespace pellix::Installer
