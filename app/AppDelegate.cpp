#include "app/AppDelegate.h"

#include <algorithm>
#include <utility>

#include "app/StatusMenu.h"
#include "identity/DeviceIdentifier.h"
#include "install/Installer.h"
#include "install/LaunchAgents.h"
#include "model/FatalError.h"
#include "platform/Alert.h"
#include "platform/Error.h"
#include "platform/MainQueue.h"
#include "platform/UserDefaults.h"

namespace pellix {
namespace {

namespace UserDefaults = platform::UserDefaults;

constexpr double pollInterval = 20.0;  // seconds
constexpr auto welcomedKey = "vlx_welcomed";

std::int64_t configuredPort() {
  const auto port = UserDefaults::integerForKey("port");
  return port >= 1 ? port : Installer::servicePort;
}

bool wantsDeviceIdWindow() {
  if (!UserDefaults::boolForKey(welcomedKey)) return true;
  const auto arguments = platform::Application::arguments();
  return std::find(arguments.begin(), arguments.end(), "--show-id") != arguments.end();
}

}  // namespace

AppDelegate::AppDelegate() : port(configuredPort()), client(port) {}

void AppDelegate::applicationDidFinishLaunching() {
  try {
    Installer::ensureInstalled();
  } catch (const platform::Error& error) {
    platform::runModal(platform::Alert::withError(error));
  }
  installedDeviceId = Installer::deviceIdentifier();

  statusItem = std::make_unique<platform::StatusItem>(platform::variableStatusItemLength);
  statusItem->setMenu({});

  if (wantsDeviceIdWindow()) {
    showDeviceIdWindow();
    UserDefaults::setBool(true, welcomedKey);
  }

  refresh();
  timer = platform::Timer::scheduledTimer(pollInterval, true, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->refresh();
  });
}

void AppDelegate::refresh() {
  client.fetchStatus([weak = weak_from_this()](Status answer) {
    // On the client's thread, where the delegate must not even be held for a moment.
    platform::MainQueue::async([weak, answer = std::move(answer)] {
      const auto self = weak.lock();
      if (!self) return;
      self->status = answer;
      if (answer.deviceId != placeholder) self->installedDeviceId = answer.deviceId;
      self->render();
    });
  });
}

void AppDelegate::render() {
  if (!statusItem) fatalError("Nothing can be rendered before the application has launched");
  if (statusItem->hasButton()) statusItem->setButton(statusBarButton(status.state));
  statusItem->setMenu(statusMenu(status, installedDeviceId, weak_from_this()));
}

void AppDelegate::showDeviceIdWindow() {
  // An ID that came with no live answer may be stale; the menu's row, which is always there, is
  // less strict.
  const bool isLive = status.deviceId != placeholder && status.serviceReachable;
  idWindow = DeviceIdWindowController::withDeviceId(isLive ? status.deviceId : installedDeviceId);
  idWindow->showWindow();
  platform::Application::activateIgnoringOtherApps();
}

}  // namespace pellix
