#include "platform/Application.h"

#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <QApplication>
#include <QByteArrayList>
#include <QFile>
#include <QWidget>
#include <atomic>
#include <cstdio>
#include <thread>
#include <utility>

#include "platform/qt/OwnEnvironment.h"
#include "platform/qt/X11.h"

using namespace Qt::StringLiterals;

namespace platform {
namespace {

bool isTerminated = false;
std::atomic<bool> isOver = false;  ///< the display is about to be closed from here

/// The application logs nothing, and neither does the toolkit on its behalf.
void dropMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (type == QtFatalMsg) std::fprintf(stderr, "%s\n", qPrintable(message));
}

/// Ends the process with the display, at once and whatever the main thread is waiting for: the
/// toolkit would notice between two events, and end in the middle of everything that lives.
void endWithDisplay() {
  if (!x11Connection()) return;
  std::thread([display = xcb_get_file_descriptor(x11Connection())] {
    pollfd end{display, POLLRDHUP, 0};
    while (::poll(&end, 1, -1) == -1) {  // interrupted
    }
    if (!isOver) _exit(1);
  }).detach();
}

}  // namespace

struct Application::Implementation {
  Implementation() {
    QCoreApplication::setApplicationName(u"velmor-pellix"_s);
    QGuiApplication::setApplicationDisplayName(u"Velmor Pellix"_s);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    endWithDisplay();
  }
  ~Implementation() { isOver = true; }

  // The toolkit sees the program's name alone: its own options are none of this program's.
  std::string name = arguments().empty() ? "velmor-pellix" : arguments().front();
  char* argv[2] = {name.data(), nullptr};
  int argc = 1;
  QApplication application{argc, argv};
  std::weak_ptr<ApplicationDelegate> delegate;
};

Application::Application() {
  qInstallMessageHandler(dropMessage);
  // Windows are described to assistive technology from the start, not only from the moment when a
  // screen reader asks the session for it.
  OwnEnvironment::set("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
  // Or the bus's library ends the program when the toolkit calls a bus that has ended.
  OwnEnvironment::set("DBUS_FATAL_WARNINGS", "0");
  implementation = std::make_unique<Implementation>();
}

Application::~Application() = default;

void Application::setDelegate(std::weak_ptr<ApplicationDelegate> delegate) {
  implementation->delegate = std::move(delegate);
}

// Every program is an accessory here: only its windows show up in task bars.
void Application::setActivationPolicy(ActivationPolicy) {}

void Application::run() {
  if (std::exchange(isTerminated, false)) return;
  QMetaObject::invokeMethod(
      &implementation->application,
      [this] {
        if (const auto delegate = implementation->delegate.lock()) {
          delegate->applicationDidFinishLaunching();
        }
      },
      Qt::QueuedConnection);
  QApplication::exec();
  isTerminated = false;
}

void Application::activateIgnoringOtherApps() {
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (!window->isVisible() || window->windowType() == Qt::Popup) continue;
    window->raise();
    window->activateWindow();
  }
}

void Application::terminate() {
  isTerminated = true;
  QCoreApplication::exit(0);
}

std::vector<std::string> Application::arguments() {
  QFile file(u"/proc/self/cmdline"_s);
  if (!file.open(QIODevice::ReadOnly)) return {};
  QByteArrayList parts = file.readAll().split('\0');
  parts.removeLast();  // what follows the last one's end
  std::vector<std::string> arguments;
  for (const QByteArray& part : parts) arguments.push_back(part.toStdString());
  return arguments;
}

}  // namespace platform
