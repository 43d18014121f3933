#include "platform/MainQueue.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>
#include <QObject>
#include <QTimer>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/qt/Conversions.h"

namespace platform::MainQueue {
namespace {

/// Runs blocks one after another, in the order posted, on the thread that this object lives on.
///
/// The blocks change threads under a mutex of the standard library rather than inside Qt's events:
/// the thread sanitizer cannot see the locks of a Qt that was not built for it.
class BlockQueue : public QObject {
 public:
  /// Any thread.
  void post(std::function<void()> block) {
    auto* const wakeUp = new QEvent(QEvent::User);
    {
      const std::lock_guard lock(mutex);
      blocks.push_back(std::move(block));
    }
    QCoreApplication::postEvent(this, wakeUp);
  }

 protected:
  bool event(QEvent* event) override {
    if (event->type() != QEvent::User) return QObject::event(event);
    std::function<void()> block;
    {
      const std::lock_guard lock(mutex);
      block = std::move(blocks.front());
      blocks.pop_front();
    }
    block();
    return true;
  }

 private:
  std::mutex mutex;
  std::deque<std::function<void()>> blocks;
};

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
