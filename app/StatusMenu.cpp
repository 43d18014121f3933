#include "app/StatusMenu.h"

#include <utility>

#include "app/AppDelegate.h"

namespace pellix {
namespace {

using platform::MenuItem;

MenuItem informationalItem(std::string title) {
  return {.title = std::move(title), .isEnabled = false};
}

MenuItem item(std::string title, platform::Action action, std::string key) {
  return {.title = std::move(title), .action = std::move(action), .keyEquivalent = std::move(key)};
}

}  // namespace

const std::string& menuId(const Status& status, const std::string& installedDeviceId) {
  return status.deviceId != placeholder ? status.deviceId : installedDeviceId;
}

platform::StatusBarButton statusBarButton(TrustState state) {
  platform::StatusBarButton button{.contentTintColor = tint(state),
                                   .toolTip = "Velmor Pellix — " + summary(state)};
  button.image = platform::Image::withSystemSymbolName(symbol(state), summary(state));
  if (button.image)
    button.image->isTemplate = !tint(state);  // an untinted icon follows the menu bar's colouring
  else
    button.title = glyph(state);
  return button;
}

platform::Menu statusMenu(const Status& status, const std::string& installedDeviceId,
                          const std::weak_ptr<AppDelegate>& delegate) {
  const MenuItem firstCommand =
      status.state == TrustState::authorized
          ? item("Open WordPress Admin", {delegate, &AppDelegate::openAdmin}, "o")
          : item("Authorize this Mac…", {delegate, &AppDelegate::openUI}, "a");
  return {{
      informationalItem(summary(status.state)),
      informationalItem(status.serviceReachable ? "Last check: " + status.lastCheckDescription()
                                                : "Starting Pellix…"),
      MenuItem::separatorItem(),
      firstCommand,
      item("Show status…", {delegate, &AppDelegate::openUI}, "s"),
      item("Show device ID…", {delegate, &AppDelegate::showId}, "i"),
      MenuItem::separatorItem(),
      {.title = menuId(status, installedDeviceId),
       .action = platform::Action{delegate, &AppDelegate::copyDeviceId},
       .toolTip = "Click to copy — IT needs this to approve your Mac"},
      MenuItem::separatorItem(),
      item("Quit Pellix", {delegate, &AppDelegate::quit}, "q"),
  }};
}

}  // namespace pellix
