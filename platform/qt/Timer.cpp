#include "platform/Timer.h"

#include <QCoreApplication>
#include <QTimer>
#include <utility>

#include "platform/qt/Conversions.h"

namespace platform {

struct Timer::Implementation {
  QTimer* timer;
};

Timer::Timer(std::unique_ptr<Implementation> timer) : implementation(std::move(timer)) {}

Timer::~Timer() {
  implementation->timer->stop();
  implementation->timer->disconnect();
  implementation->timer->deleteLater();  // this may be in the middle of its time-out
}

std::unique_ptr<Timer> Timer::scheduledTimer(double interval, bool repeats,
                                             std::function<void()> block) {
  auto* timer = new QTimer(qApp);
  timer->setTimerType(Qt::PreciseTimer);
  timer->setSingleShot(!repeats);
  QObject::connect(timer, &QTimer::timeout, std::move(block));
  timer->start(toMilliseconds(interval));
  return std::unique_ptr<Timer>(new Timer(std::make_unique<Implementation>(Implementation{timer})));
}

}  // namespace platform
