#include "app/AppDelegate.h"
#include "app/StatusMenu.h"
#include "platform/Alert.h"
#include "platform/Pasteboard.h"
#include "platform/Workspace.h"

namespace pellix {

// Not the wrong way round: "Authorize this Mac…" leads to the service's root page, where that is
// done, and "Open WordPress Admin" to its /authorize page. The service takes the user on from
// there; the address of the site itself, which the status tells, is never opened.
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
