#pragma once

namespace pellix::Installer {

/// Makes the user's installation complete and current, and restarts the service: support folder,
/// managed.json, the service binary from the bundle, both property lists, launchd. Replaces all of
/// it on every call, so that launching the application repairs and updates it. Blocks, child
/// processes included. Throws the first `platform::Error` met and leaves what was done before it.
void ensureInstalled();

}  // namespace pellix::Installer
