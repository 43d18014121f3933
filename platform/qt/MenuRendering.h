#pragma once

#include <QList>
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
  /// Makes it show `menu`. Panels may still send the numbers of entries that they read before: an
  /// entry never changes its command, and those that are replaced work on until the next are.
  void setMenu(const Menu& menu);

 private:
  Menu shown;
  QList<QAction*> rows, retired;
};

}  // namespace platform
