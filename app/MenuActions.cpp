#include <array>
#include <utility>

#include "app/AppDelegate.h"
#include "app/StatusMenu.h"
#include "platform/Alert.h"
#include "platform/Pasteboard.h"
#include "platform/Workspace.h"

namespace pellix {

void AppDelegate::perform(const platform::Selector& selector) {
  using Method = void (AppDelegate::*)();
  static constexpr std::array<std::pair<std::string_view, Method>, 5> methods = {{
      {"openUI", &AppDelegate::openUI},
      {"openAdmin", &AppDelegate::openAdmin},
      {"showId", &AppDelegate::showId},
      {"copyDeviceId", &AppDelegate::copyDeviceId},
      {"quit", &AppDelegate::quit},
  }};
  for (const auto& [name, method] : methods)
    if (name == selector) return (this->*method)();
}

void AppDelegate::openUI() {
  openPage("/");
}

void AppDelegate::openAdmin() {
  openPage("/authorize");
}

void AppDelegate::openPage(std::string_view path) {
  if (const auto url = platform::Url::withString(client.baseURL().append(path)))
    platform::Workspace::openUrl(*url);
}

void AppDelegate::showId() {
  showDeviceIdWindow();
}

void AppDelegate::copyDeviceId() {
  platform::GeneralPasteboard::clearContents();
  platform::GeneralPasteboard::setString(menuId(status, installedDeviceId));
}

void AppDelegate::quit() {
  const platform::Alert alert{
      .messageText = "Quit Pellix?",
      .informativeText =
          "This closes the menu bar icon only. Your Mac stays authorized and Pellix "
          "keeps running in the background.",
      .buttons = {"Quit", "Cancel"},
      .alertStyle = platform::AlertStyle::informational};
  if (platform::runModal(alert) == platform::alertFirstButtonReturn)
    platform::Application::terminate();
}

}  // namespace pellix
