#include "platform/Application.h"

#include <dlfcn.h>
#include <malloc.h>
#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <QApplication>
#include <QByteArrayList>
#include <QFile>
#include <QWidget>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include "platform/qt/OwnEnvironment.h"
#include "platform/qt/X11.h"

using namespace Qt::StringLiterals;

namespace platform {

namespace {

bool terminated = false;
bool inEventLoop = false;

/// Ends the process as soon as the X server is gone, whatever the main thread is waiting for.
class DisplayWatch {
 public:
  DisplayWatch() {
    if (!x11Connection()) return;
    std::thread([display = xcb_get_file_descriptor(x11Connection()), isOver = isOver] {
      pollfd end{display, POLLRDHUP, 0};
      while (::poll(&end, 1, -1) == -1 && errno == EINTR) {
      }
      if (end.revents != 0 && !*isOver) _exit(1);
    }).detach();
  }
  ~DisplayWatch() { *isOver = true; }
  DisplayWatch(const DisplayWatch&) = delete;
  DisplayWatch& operator=(const DisplayWatch&) = delete;

 private:
  const std::shared_ptr<std::atomic<bool>> isOver = std::make_shared<std::atomic<bool>>(false);
};

/// The application logs nothing, and neither does the toolkit on its behalf.
void dropMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
  // What the toolkit does next is to call exit(); its own libraries' exit handlers come first then.
  const bool isMainThread = ::gettid() == ::getpid();
  if (isMainThread && x11Connection() && xcb_connection_has_error(x11Connection())) _exit(1);
  if (type != QtFatalMsg) return;
  std::fprintf(stderr, "%s\n", qPrintable(message));
  std::abort();
}

/// Losing the display makes the toolkit call exit() inside the event loop. Static destructors must
/// not run there, under the feet of the living application and its threads.
void endAtOnce(int status, void*) {
  if (inEventLoop) _exit(status);
}

/// Xlib, which the toolkit uses here and there, reports a lost display in a way of its own.
void silenceXlib() {
  using Handler = int (*)(void* display);
  void* const xlib = ::dlopen("libX11.so.6", RTLD_LAZY | RTLD_NOLOAD);
  if (!xlib) return;
  if (void* const set = ::dlsym(xlib, "XSetIOErrorHandler")) {
    reinterpret_cast<Handler (*)(Handler)>(set)([](void*) -> int { _exit(1); });
  }
  ::dlclose(xlib);
}

}  // namespace

struct Application::Implementation {
  Implementation() {
    QCoreApplication::setApplicationName(u"velmor-pellix"_s);
    QGuiApplication::setApplicationDisplayName(u"Velmor Pellix"_s);
    QGuiApplication::setQuitOnLastWindowClosed(false);
  }

  // The toolkit sees the program's name alone: its own options are none of this program's.
  std::string name = arguments().empty() ? "velmor-pellix" : arguments().front();
  char* argv[2] = {name.data(), nullptr};
  int argc = 1;
  QApplication application{argc, argv};
  DisplayWatch displayWatch;
  std::weak_ptr<ApplicationDelegate> delegate;
};

Application::Application() {
  // The few threads never wait for memory, but each would hold some back for itself.
  ::mallopt(M_ARENA_MAX, 1);
  // As it is by default, but fixed: else it grows with the largest answer ever freed, and the
  // process keeps up to 64 MiB.
  ::mallopt(M_TRIM_THRESHOLD, 128 * 1024);
  qInstallMessageHandler(dropMessage);
  // Windows are described to assistive technology from the start, not only from the moment when a
  // screen reader asks the session for it.
  OwnEnvironment::set("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
  // Or the bus's library ends the program when the toolkit calls a bus that has ended.
  OwnEnvironment::set("DBUS_FATAL_WARNINGS", "0");
  implementation = std::make_unique<Implementation>();
  silenceXlib();
  [[maybe_unused]] static const int registered = on_exit(endAtOnce, nullptr);
}

Application::~Application() = default;

void Application::setDelegate(std::weak_ptr<ApplicationDelegate> delegate) {
  implementation->delegate = std::move(delegate);
}

// Every program is an accessory here: only its windows show up in task bars.
void Application::setActivationPolicy(ActivationPolicy) {}

void Application::run() {
  if (std::exchange(terminated, false)) return;
  QMetaObject::invokeMethod(
      &implementation->application,
      [this] {
        if (const auto delegate = implementation->delegate.lock()) {
          delegate->applicationDidFinishLaunching();
        }
      },
      Qt::QueuedConnection);
  inEventLoop = true;
  QApplication::exec();
  inEventLoop = terminated = false;
}

void Application::activateIgnoringOtherApps() {
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (!window->isVisible() || window->windowType() == Qt::Popup) continue;
    window->raise();
    window->activateWindow();
  }
}

void Application::terminate() {
  terminated = true;
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
