#pragma once

#include <QGuiApplication>

struct xcb_connection_t;

namespace platform {

/// The connection to the X server, or null without a session or in one without such a server.
inline xcb_connection_t* x11Connection() {
  const auto* x11 =
      qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  return x11 ? x11->connection() : nullptr;
}

}  // namespace platform
