// The program as it is, except that it takes cues from the file descriptor in its argument: a '.'
// makes it poll once, a 't' makes it give the memory that it has freed back to the system. It ends
// when there are no more.
#include <malloc.h>
#include <unistd.h>
#include <QSocketNotifier>
#include <array>
#include <memory>
#include <string>

#include "app/AppDelegate.h"
#include "platform/Application.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const int cues = std::stoi(argv[1]);

  platform::Application app;
  const auto delegate = std::make_shared<pellix::AppDelegate>();
  app.setDelegate(delegate);
  app.setActivationPolicy(platform::ActivationPolicy::accessory);

  QSocketNotifier notifier(cues, QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [&] {
    std::array<char, 64> bytes{};
    const ssize_t count = read(cues, bytes.data(), bytes.size());
    for (ssize_t i = 0; i < count; ++i) {
      if (bytes[static_cast<std::size_t>(i)] == 't')
        malloc_trim(0);
      else
        delegate->refresh();
    }
    if (count > 0) return;
    notifier.setEnabled(false);
    platform::Application::terminate();
  });
  app.run();
  return 0;
}
