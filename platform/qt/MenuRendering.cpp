#include "platform/qt/MenuRendering.h"

#include <QApplication>
#include <QScreen>
#include <QShortcut>
#include <algorithm>
#include <utility>

#include "platform/qt/Conversions.h"
#include "platform/qt/Rendering.h"

using namespace Qt::StringLiterals;

namespace platform {
namespace {

/// Verbatim, in one line and narrower than the screen. A tab would start the column of the keys.
QString popupTitle(const QMenu& menu, const std::string& title) {
  const int widest = menu.screen()->availableGeometry().width() / 2;
  const QString line = displayText(title).replace(u'\t', u' ');
  return menu.fontMetrics().elidedText(line, Qt::ElideMiddle, widest).replace(u'&', u"&&"_s);
}

/// The protocol reads a single "_" as the mark of a key, and Qt makes such a mark of the first "&"
/// that is not the last character. That one is given to a character that nobody can type as a key.
QString exportedTitle(const std::string& title) {
  QString text = displayText(title).replace(u'_', u"__"_s);
  const qsizetype ampersand = text.indexOf(u'&');
  if (ampersand >= 0 && ampersand != text.size() - 1) text.insert(ampersand, u'&');
  return text;
}

void fill(QAction& action, const MenuItem& item, const QString& title) {
  action.setText(title);
  action.setToolTip(verbatimToolTip(item.toolTip));
  action.setEnabled(item.isEnabled && item.action);
  const QString key = toQString(item.keyEquivalent).toUpper();
  action.setShortcut(key.isEmpty() ? QKeySequence() : QKeySequence(u"Ctrl+"_s + key));
}

QAction* newAction(QMenu& menu, const MenuItem& item, const QString& title) {
  auto* action = new QAction(&menu);
  action->setSeparator(item.isSeparatorItem);
  fill(*action, item, title);
  if (item.action)
    QObject::connect(action, &QAction::triggered, action,
                     [command = *item.action] { performLater(command); });
  return action;
}

/// A key equivalent works as long as the menu is open, and only then.
void addShortcut(QMenu& menu, QAction& action) {
  auto* shortcut = new QShortcut(action.shortcut(), &menu);
  QObject::connect(shortcut, &QShortcut::activated, &action, [&menu, &action] {
    menu.close();
    action.trigger();
  });
}

/// Entries that cannot be picked may still be what the user opened the menu to read, and
/// separators are to be seen on dark menus too.
void makeReadable(QMenu& menu) {
  QPalette palette = QApplication::palette();
  QColor text = palette.color(QPalette::Active, QPalette::Text);
  text.setAlphaF(0.2F);
  menu.setStyleSheet(u"QMenu::separator { height: 1px; margin: 4px; background: %1; }"_s.arg(
      text.name(QColor::HexArgb)));
  text.setAlphaF(0.6F);
  palette.setColor(QPalette::Disabled, QPalette::Text, text);
  palette.setColor(QPalette::Disabled, QPalette::WindowText, text);
  menu.setPalette(palette);
}

bool haveSameCommand(const MenuItem& a, const MenuItem& b) {
  return a.isSeparatorItem == b.isSeparatorItem && a.action == b.action;
}

}  // namespace

std::unique_ptr<QMenu> popupMenu(const Menu& menu) {
  auto rendered = std::make_unique<QMenu>();
  rendered->setToolTipsVisible(true);
  rendered->setSeparatorsCollapsible(false);
  makeReadable(*rendered);
  for (const MenuItem& item : menu.items) {
    QAction* action = newAction(*rendered, item, popupTitle(*rendered, item.title));
    rendered->addAction(action);
    if (action->isEnabled() && !action->shortcut().isEmpty()) addShortcut(*rendered, *action);
  }
  return rendered;
}

void ExportedMenu::setMenu(const Menu& menu) {
  const bool keepsRows = std::ranges::equal(menu.items, shown.items, haveSameCommand);
  shown = menu;
  if (keepsRows) {
    for (qsizetype i = 0; i < rows.size(); ++i) {
      const MenuItem& item = menu.items[static_cast<std::size_t>(i)];
      fill(*rows[i], item, exportedTitle(item.title));
    }
    return;
  }
  qDeleteAll(std::exchange(retired, std::exchange(rows, {})));
  for (const MenuItem& item : menu.items)
    addAction(rows.emplaceBack(newAction(*this, item, exportedTitle(item.title))));
  for (QAction* action : retired) action->setVisible(false);
}

}  // namespace platform
