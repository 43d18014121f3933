#include "platform/qt/MenuRendering.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QProxyStyle>
#include <QScreen>
#include <QStyleOptionMenuItem>
#include <algorithm>

#include "platform/qt/Conversions.h"
#include "platform/qt/Rendering.h"

using namespace Qt::StringLiterals;

namespace platform {

namespace {

QColor faded(QColor color, float opacity) {
  color.setAlphaF(opacity);
  return color;
}

/// Keeps a menu narrower than the screen: titles that are too long are elided where they are drawn,
/// and stay whole for everything else. Its separators are seen on dark menus too.
class MenuStyle : public QProxyStyle {
 public:
  QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                         const QWidget* widget) const override {
    QSize result = QProxyStyle::sizeFromContents(type, option, size, widget);
    if (type == CT_MenuItem) result.setWidth(std::min(result.width(), maximumWidth(widget)));
    return result;
  }

  void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                   const QWidget* widget) const override {
    const auto* item = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
    if (element != CE_MenuItem || !item) {
      return QProxyStyle::drawControl(element, option, painter, widget);
    }
    if (item->menuItemType == QStyleOptionMenuItem::Separator) {
      constexpr int margin = 4;
      const QRect middle(item->rect.left() + margin, item->rect.center().y(),
                         item->rect.width() - 2 * margin, 1);
      return painter->fillRect(middle, faded(item->palette.color(QPalette::Text), 0.2F));
    }
    const qsizetype keyColumn = item->text.indexOf(u'\t');
    const QString title = item->text.left(keyColumn);
    const QSize size = item->fontMetrics.size(Qt::TextSingleLine | Qt::TextShowMnemonic, title);
    const int excess = QProxyStyle::sizeFromContents(CT_MenuItem, item, size, widget).width() -
                       maximumWidth(widget);
    QStyleOptionMenuItem elided(*item);
    if (excess > 0) {
      elided.text = item->fontMetrics.elidedText(QString(title).replace(u"&&"_s, u"&"_s),
                                                 Qt::ElideMiddle, size.width() - excess);
      elided.text.replace(u'&', u"&&"_s);
      if (keyColumn >= 0) elided.text += item->text.mid(keyColumn);
    }
    QProxyStyle::drawControl(element, &elided, painter, widget);
  }

 private:
  static int maximumWidth(const QWidget* widget) {
    const QScreen* screen = widget ? widget->screen() : QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry().width() / 2 : 640;
  }
};

/// A key equivalent works as long as the menu is open, and only then.
class PopupMenu : public QMenu {
 public:
  PopupMenu() {
    setToolTipsVisible(true);
    setPalette(readablePalette());
    auto* style = new MenuStyle;
    style->setParent(this);
    setStyle(style);
  }

 private:
  /// Entries that cannot be picked may still be what the user opened the menu to read.
  static QPalette readablePalette() {
    QPalette palette = QApplication::palette();
    const QColor text = faded(palette.color(QPalette::Active, QPalette::Text), 0.6F);
    palette.setColor(QPalette::Disabled, QPalette::Text, text);
    palette.setColor(QPalette::Disabled, QPalette::WindowText, text);
    return palette;
  }

  void keyPressEvent(QKeyEvent* event) override {
    for (QAction* action : actions()) {
      if (!action->isEnabled() || action->shortcut().isEmpty() ||
          action->shortcut() != QKeySequence(event->keyCombination())) {
        continue;
      }
      close();
      action->trigger();
      return;
    }
    QMenu::keyPressEvent(event);
  }
};

/// A tab would start the column of the keys.
QString popupTitle(const std::string& title) {
  return verbatimTitle(title).replace(u'\t', u' ');
}

/// The protocol reads a single "_" as the mark of a key, and Qt makes such a mark of the first "&"
/// that is not the last character. That one is given to a character that nobody can type as a key.
QString exportedTitle(const std::string& title) {
  QString text = displayText(title).replace(u'_', u"__"_s);
  const qsizetype ampersand = text.indexOf(u'&');
  if (ampersand >= 0 && ampersand != text.size() - 1) text.insert(ampersand, u'&');
  return text;
}

using TitleForm = QString (*)(const std::string&);

void updateAction(QAction& action, const MenuItem& item, TitleForm titleForm) {
  action.setText(titleForm(item.title));
  action.setToolTip(verbatimToolTip(item.toolTip));
  action.setEnabled(item.isEnabled && item.action);
  action.setShortcut(item.keyEquivalent.empty()
                         ? QKeySequence()
                         : QKeySequence(u"Ctrl+"_s + toQString(item.keyEquivalent).toUpper()));
}

void addItems(QMenu& rendered, const Menu& menu, TitleForm titleForm) {
  rendered.setSeparatorsCollapsible(false);
  for (const MenuItem& item : menu.items) {
    if (item.isSeparatorItem) {
      rendered.addSeparator();
      continue;
    }
    auto* action = new QAction(&rendered);
    updateAction(*action, item, titleForm);
    if (item.action) {
      QObject::connect(action, &QAction::triggered, action,
                       [command = *item.action] { performLater(command); });
    }
    rendered.addAction(action);
  }
}

}  // namespace

std::unique_ptr<QMenu> popupMenu(const Menu& menu) {
  auto rendered = std::make_unique<PopupMenu>();
  addItems(*rendered, menu, popupTitle);
  return rendered;
}

ExportedMenu::ExportedMenu(const Menu& menu) {
  addItems(*this, menu, exportedTitle);
}

// Qt frees what it exported of an entry when the entry is removed, and only then.
ExportedMenu::~ExportedMenu() {
  clear();
}

void ExportedMenu::update(const Menu& menu) {
  for (std::size_t i = 0; i < menu.items.size(); ++i) {
    QAction& action = *actions()[static_cast<qsizetype>(i)];
    if (!action.isSeparator()) updateAction(action, menu.items[i], exportedTitle);
  }
}

void ExportedMenu::announce() {
  // Higher than Qt ever counts by itself, and it counts anew for each menu: there are panels that
  // read only what has a higher number than what they have read.
  static unsigned revision = 1'000'000;
  if (QObject* object = busObject()) {
    QMetaObject::invokeMethod(object, "updated", Q_ARG(unsigned, ++revision), Q_ARG(int, 0));
  }
}

void ExportedMenu::answerCalls() {
  if (QObject* object = busObject()) QCoreApplication::sendPostedEvents(object);
}

void ExportedMenu::refuseCalls() {
  if (QObject* object = busObject()) QCoreApplication::removePostedEvents(object);
}

QObject* ExportedMenu::busObject() {
  // QPlatformMenu derives from QObject alone, but its definition is private to Qt.
  return reinterpret_cast<QObject*>(platformMenu());
}

bool haveSameCommands(const Menu& a, const Menu& b) {
  return std::equal(a.items.begin(), a.items.end(), b.items.begin(), b.items.end(),
                    [](const MenuItem& x, const MenuItem& y) {
                      return x.isSeparatorItem == y.isSeparatorItem && x.action == y.action;
                    });
}

}  // namespace platform
