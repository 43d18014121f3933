#pragma once

#include <memory>
#include <string>

#include "platform/Action.h"
#include "platform/Window.h"

namespace pellix {

/// The small window that shows one device ID and copies it; another ID takes another controller.
/// Closing the window hides it: it lives as long as its controller. Main thread only.
class DeviceIdWindowController final
    : public platform::Target,
      public std::enable_shared_from_this<DeviceIdWindowController> {
 public:
  /// A controller whose window is built, centred and not yet shown.
  static std::shared_ptr<DeviceIdWindowController> withDeviceId(std::string deviceId);

  void showWindow();

  // The buttons' commands.
  void copyId();
  void closeWindow();

 private:
  explicit DeviceIdWindowController(std::string deviceId);
  platform::View buildContent();

  std::string deviceId;
  std::unique_ptr<platform::Window> window;
};

}  // namespace pellix
