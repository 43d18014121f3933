#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "app/DeviceIdWindowController.h"
#include "client/ServiceClient.h"
#include "model/Status.h"
#include "platform/Action.h"
#include "platform/Application.h"
#include "platform/StatusItem.h"
#include "platform/Timer.h"

namespace pellix {

/// The spine of the program: launches it, polls the service and shows the answers. It owns all that
/// lives as long as the process. Owned by a shared pointer; main thread only.
class AppDelegate final : public platform::ApplicationDelegate,
                          public platform::Target,
                          public std::enable_shared_from_this<AppDelegate> {
 public:
  /// Reads the port from the user defaults and makes the client.
  AppDelegate();

  /// Installs, learns the device ID, shows the status item (and the device-ID window at the first
  /// launch or on request), then polls at once and every 20 seconds. Blocks for the installation.
  void applicationDidFinishLaunching() override;

  /// Starts one poll and returns at once; when it ends, its status is kept and rendered.
  void refresh();

  /// Shows the last status in the status item: icon and the whole menu anew. Only after launch.
  void render();

  /// Opens a new device-ID window in place of an earlier one and brings it to the front.
  void showDeviceIdWindow();

  // The menu's commands: the rows of app/StatusMenu.cpp name them, app/MenuActions.cpp has them.
  void openUI();
  void openAdmin();
  void showId();
  void copyDeviceId();
  void quit();

 private:
  void openPage(std::string_view path);

  std::int64_t port;
  ServiceClient client;
  std::unique_ptr<platform::StatusItem> statusItem;
  std::unique_ptr<platform::Timer> timer;
  Status status;
  std::shared_ptr<DeviceIdWindowController> idWindow;
  /// The last real ID seen, whatever polls bring later.
  std::string installedDeviceId{placeholder};
};

}  // namespace pellix
