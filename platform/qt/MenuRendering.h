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
  explicit ExportedMenu(const Menu& menu);
  ~ExportedMenu() override;
  ExportedMenu(const ExportedMenu&) = delete;
  ExportedMenu& operator=(const ExportedMenu&) = delete;

  /// Makes it show `menu`, which has the same commands as what it shows now. Panels are told.
  void update(const Menu& menu);

  /// Tells panels that this menu has taken the place of another: once, where adding its entries
  /// under their eyes would have them read it again for each.
  void announce();

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
