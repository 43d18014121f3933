#include "platform/MainQueue.h"

#include <QDeadlineTimer>
#include <QTimer>
#include <utility>

#include "platform/qt/BlockQueue.h"
#include "platform/qt/Conversions.h"

namespace platform::MainQueue {
namespace {

/// Never destroyed: a thread may still post while the process ends.
BlockQueue& mainQueue() {
  static BlockQueue* const queue = [] {
    auto* const created = new BlockQueue;
    created->moveToThread(QCoreApplication::instance()->thread());
    return created;
  }();
  return *queue;
}

}  // namespace

void async(std::function<void()> block) {
  if (QCoreApplication::instance() == nullptr) return;
  mainQueue().post(std::move(block));
}

void asyncAfter(double seconds, std::function<void()> block) {
  const QDeadlineTimer deadline(toMilliseconds(seconds), Qt::PreciseTimer);
  async([deadline, block = std::move(block)] {
    QTimer::singleShot(static_cast<int>(deadline.remainingTime()), Qt::PreciseTimer,
                       QCoreApplication::instance(), block);
  });
}

}  // namespace platform::MainQueue
