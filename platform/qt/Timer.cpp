#include "platform/Timer.h"

#include <QTimer>
#include <utility>

#include "platform/qt/Conversions.h"

namespace platform {

struct Timer::Implementation {
  struct Firing {
    std::function<void()> block;
    int underWay = 0;  ///< more than one if the block runs an event loop of its own
  };

  explicit Implementation(std::function<void()> block)
      : firing(std::make_shared<Firing>(Firing{.block = std::move(block)})) {}

  ~Implementation() {
    timer->stop();
    timer->disconnect();
    // A QTimer must not be deleted while it is delivering its time-out.
    if (firing->underWay > 0) timer.release()->deleteLater();
  }

  std::shared_ptr<Firing> firing;
  std::unique_ptr<QTimer> timer = std::make_unique<QTimer>();
};

Timer::Timer(std::unique_ptr<Implementation> timer) : implementation(std::move(timer)) {}
Timer::~Timer() = default;

std::unique_ptr<Timer> Timer::scheduledTimer(double interval, bool repeats,
                                             std::function<void()> block) {
  auto implementation = std::make_unique<Implementation>(std::move(block));
  QTimer& timer = *implementation->timer;
  timer.setTimerType(Qt::PreciseTimer);
  timer.setSingleShot(!repeats);
  QObject::connect(&timer, &QTimer::timeout, [firing = implementation->firing] {
    // The block may end the timer, and this connection with it.
    const auto kept = firing;  // NOLINT(performance-unnecessary-copy-initialization)
    ++kept->underWay;
    kept->block();
    --kept->underWay;
  });
  timer.start(toMilliseconds(interval));
  return std::unique_ptr<Timer>(new Timer(std::move(implementation)));
}

}  // namespace platform
