#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace platform {

/// Runs blocks one after another, in the order posted, on the thread that this object lives on.
/// Blocks never run are released with it.
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

}  // namespace platform
