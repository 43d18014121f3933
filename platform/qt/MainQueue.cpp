#include "platform/MainQueue.h"

#include <QCoreApplication>
#include <QTimer>
#include <utility>

#include "platform/qt/Conversions.h"

namespace platform::MainQueue {

void async(std::function<void()> block) {
  auto* const application = QCoreApplication::instance();
  if (application == nullptr) return;
  QMetaObject::invokeMethod(application, std::move(block), Qt::QueuedConnection);
}

void asyncAfter(double seconds, std::function<void()> block) {
  async([seconds, block = std::move(block)] {
    QTimer::singleShot(toMilliseconds(seconds), Qt::PreciseTimer, QCoreApplication::instance(),
                       block);
  });
}

}  // namespace platform::MainQueue
