#pragma once

#include <QAbstractNativeEventFilter>
#include <QColor>
#include <QObject>
#include <QTimer>
#include <functional>
#include <optional>

namespace platform {

/// Looks out for a place that shows status items: a StatusNotifierItem host on the session bus, or
/// an X11 system tray. Either may come long after the program has started. Main thread.
class SystemTray : public QObject, private QAbstractNativeEventFilter {
 public:
  /// Calls `found` once there is such a place, and again whenever there may be a new one.
  explicit SystemTray(std::function<void()> found);
  ~SystemTray() override;

  /// The colour that the X11 system tray asks its icons to be drawn in, if it asks for one.
  static std::optional<QColor> foreground();

 private:
  void look();
  bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

  std::function<void()> found;
  QTimer lookSoon;
  QTimer lookAgain;
};

}  // namespace platform
