#pragma once

#include <memory>
#include <string>

#include "model/Status.h"
#include "platform/Menu.h"
#include "platform/StatusItem.h"

namespace pellix {

class AppDelegate;

/// The ID that the menu shows and copies: the status's own unless that is the placeholder, whether
/// or not the service was reachable; else `installedDeviceId`.
const std::string& menuId(const Status& status, const std::string& installedDeviceId);

/// What the status item's button shows for `state`. Main thread: looks up the symbol image.
platform::StatusBarButton statusBarButton(TrustState state);

/// The whole drop-down menu, always ten entries; its commands are `delegate`'s methods.
platform::Menu statusMenu(const Status& status, const std::string& installedDeviceId,
                          const std::weak_ptr<AppDelegate>& delegate);

}  // namespace pellix
