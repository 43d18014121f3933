#include "platform/qt/SystemTray.h"

#include <xcb/xcb.h>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QTimer>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "platform/qt/X11.h"

using namespace Qt::StringLiterals;

namespace platform {
namespace {

using namespace std::chrono_literals;

const QString watcherName = u"org.kde.StatusNotifierWatcher"_s;
const QString watcherPath = u"/StatusNotifierWatcher"_s;
const QString nobodyThere = u"org.freedesktop.DBus.Error.NameHasNoOwner"_s;

constexpr int patience = 10'000;  // ms, for an answer
constexpr auto pause = 2s;        // before asking again

template <typename Reply>
std::unique_ptr<Reply, decltype(&std::free)> owned(Reply* reply) {
  return {reply, &std::free};
}

xcb_atom_t atom(xcb_connection_t* x, const std::string& name) {
  const auto cookie = xcb_intern_atom(x, 0, static_cast<uint16_t>(name.size()), name.c_str());
  const auto reply = owned(xcb_intern_atom_reply(x, cookie, nullptr));
  return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

xcb_window_t trayWindow(xcb_connection_t* x) {
  char* host = nullptr;
  int display = 0;
  int screen = 0;
  if (xcb_parse_display(nullptr, &host, &display, &screen)) std::free(host);
  const auto cookie =
      xcb_get_selection_owner(x, atom(x, "_NET_SYSTEM_TRAY_S" + std::to_string(screen)));
  const auto reply = owned(xcb_get_selection_owner_reply(x, cookie, nullptr));
  return reply ? reply->owner : static_cast<xcb_window_t>(XCB_WINDOW_NONE);
}

bool hasX11Tray() {
  return x11Connection() && trayWindow(x11Connection()) != XCB_WINDOW_NONE;
}

}  // namespace

SystemTray::SystemTray(std::function<void()> callback) : found(std::move(callback)) {
  lookAgain.setInterval(pause);
  for (QTimer* const timer : {&lookSoon, &lookAgain}) {
    timer->setSingleShot(true);
    connect(timer, &QTimer::timeout, this, &SystemTray::look);
  }

  QDBusConnection bus = QDBusConnection::sessionBus();
  if (bus.isConnected()) {
    auto* watcher =
        new QDBusServiceWatcher(watcherName, bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, [this] { lookSoon.start(); });
    bus.connect(watcherName, watcherPath, watcherName, u"StatusNotifierHostRegistered"_s, &lookSoon,
                SLOT(start()));
  }
  if (x11Connection()) qGuiApp->installNativeEventFilter(this);
  lookSoon.start();  // not from here: what `found` refers to may be under construction
}

SystemTray::~SystemTray() = default;

void SystemTray::look() {
  if (!QDBusConnection::sessionBus().isConnected()) {
    if (hasX11Tray()) found();
    return;
  }
  QDBusMessage question = QDBusMessage::createMethodCall(
      watcherName, watcherPath, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
  question.setAutoStartService(false);
  question << watcherName << u"IsStatusNotifierHostRegistered"_s;
  const QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(question, patience);
  auto* answer = new QDBusPendingCallWatcher(call, this);
  connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
    answer->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *answer;
    const bool hasHost = reply.isValid() && reply.value().variant().toBool();
    const bool isUndecided = reply.isError() && reply.error().name() != nobodyThere;
    if (hasHost || hasX11Tray())
      found();
    else if (isUndecided)  // a panel that is busy, as at a login, or not ready for the question yet
      lookAgain.start();
  });
}

bool SystemTray::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
  if (eventType != "xcb_generic_event_t") return false;
  const auto* event = static_cast<const xcb_generic_event_t*>(message);
  if ((event->response_type & 0x7F) != XCB_CLIENT_MESSAGE) return false;
  static const xcb_atom_t manager = atom(x11Connection(), "MANAGER");
  if (reinterpret_cast<const xcb_client_message_event_t*>(event)->type == manager) lookSoon.start();
  return false;
}

std::optional<QColor> SystemTray::foreground() {
  xcb_connection_t* const x = x11Connection();
  if (!x) return {};
  // Four colours, each of red, green and blue; the foreground comes first.
  const auto cookie = xcb_get_property(x, 0, trayWindow(x), atom(x, "_NET_SYSTEM_TRAY_COLORS"),
                                       XCB_ATOM_CARDINAL, 0, 3);
  const auto reply = owned(xcb_get_property_reply(x, cookie, nullptr));
  if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 12) return {};
  const auto* channels = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
  return QColor::fromRgba64(static_cast<quint16>(channels[0]), static_cast<quint16>(channels[1]),
                            static_cast<quint16>(channels[2]));
}

}  // namespace platform
