#include "MainLoop.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

bool runMainLoopUntil(const std::function<bool()>& condition, double seconds) {
  const QDeadlineTimer deadline(static_cast<qint64>(seconds * 1000));
  QEventLoop loop;
  QTimer check;
  QObject::connect(&check, &QTimer::timeout, [&] {
    if (condition() || deadline.hasExpired()) loop.quit();
  });
  check.start(5);
  loop.exec();
  return condition();
}
