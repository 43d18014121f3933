#pragma once

#include <QMenu>
#include <memory>

#include "platform/Menu.h"

namespace platform {

/// A menu to be opened on the screen.
std::unique_ptr<QMenu> popupMenu(const Menu& menu);

/// A menu that panels read over D-Bus. Its titles are written for that protocol and would not read
/// right on the screen.
class ExportedMenu : public QMenu {
 public:
  ExportedMenu() = default;
  ~ExportedMenu() override;
  ExportedMenu(const ExportedMenu&) = delete;
  ExportedMenu& operator=(const ExportedMenu&) = delete;

  /// Makes the menu, empty until now, show `menu`. Panels that watch it are told.
  void fill(const Menu& menu);
  /// Makes it show `menu`, which has the same commands as what it shows now.
  void update(const Menu& menu);

  /// Carries out the calls that have arrived for the menu.
  void answerCalls();
  /// Answers with an error what has arrived for the menu since: it is on the bus no more.
  void refuseCalls();

 private:
  QObject* busObject();
};

/// Whether a menu exported from `a` can turn into `b` without an entry changing its command: panels
/// send the number of an entry that they may have read before the change.
bool haveSameCommands(const Menu& a, const Menu& b);

}  // namespace platform
