#pragma once

#include "platform/Url.h"

namespace platform::Workspace {

/// Opens `url` in the user's default browser and returns at once. Main thread; failure is ignored.
void openUrl(const Url& url);

}  // namespace platform::Workspace
