#include "platform/StatusItem.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QIcon>
#include <QImage>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>
#include <QSystemTrayIcon>
#include <algorithm>
#include <utility>

#include "platform/qt/Conversions.h"
#include "platform/qt/MenuRendering.h"
#include "platform/qt/Rendering.h"
#include "platform/qt/SystemTray.h"

namespace platform {

namespace {

void drawTitle(QPainter& painter, const std::string& title, const QRect& bounds) {
  if (title.empty()) return;  // as before the first poll: loading a font would delay the icon
  QFont font = QApplication::font();
  font.setPixelSize(bounds.height());
  painter.setFont(font);
  painter.drawText(bounds, Qt::AlignCenter | Qt::TextSingleLine, toQString(title));
}

/// Colours of an icon. One that is not valid is not used.
struct Ink {
  QColor fill;  ///< of everything that the drawing covers; else the drawing keeps its own colours
  QColor rim;   ///< around it
  friend bool operator==(const Ink&, const Ink&) = default;
};

QImage filled(QImage image, const QColor& color) {
  QPainter painter(&image);
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(image.rect(), color);
  return image;
}

QImage rimmed(const QImage& image, const QColor& color) {
  const QImage shadow = filled(image, color);
  const int width = std::max(1, image.width() / 24);
  QImage result(image.size(), image.format());
  result.fill(Qt::transparent);
  QPainter painter(&result);
  for (const int x : {-width, 0, width}) {
    for (const int y : {-width, 0, width}) painter.drawImage(x, y, shadow);
  }
  painter.drawImage(0, 0, image);
  return result;
}

/// The button at all sizes that bars ask for.
QIcon icon(const StatusBarButton& button, const Ink& ink) {
  QSvgRenderer symbol;
  if (button.image) {
    if (const auto drawing = symbolDrawing(button.image->systemSymbolName)) {
      symbol.load(QString::fromStdString(drawing->string()));
      symbol.setAspectRatioMode(Qt::KeepAspectRatio);
    }
  }
  QIcon icon;
  for (const int size : {16, 22, 24, 32, 44, 48, 64}) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    if (button.image) {
      symbol.render(&painter, image.rect());
    } else {
      drawTitle(painter, button.title, image.rect());
    }
    painter.end();
    if (ink.fill.isValid()) image = filled(image, ink.fill);
    if (ink.rim.isValid()) image = rimmed(image, ink.rim);
    icon.addPixmap(QPixmap::fromImage(image));
  }
  return icon;
}

}  // namespace

/// The icon is made once there is a place for it: Qt chooses between the two kinds of tray when the
/// first icon of a process is made, and keeps to its choice.
struct StatusItem::Implementation : QObject {
  Implementation() { qApp->installEventFilter(this); }

  void appear() {
    if (!icon) {
      icon = std::make_unique<QSystemTrayIcon>();
      connect(icon.get(), &QSystemTrayIcon::activated, this, [this] { open(); });
      exported = std::make_unique<ExportedMenu>();
      icon->setContextMenu(exported.get());
      if (exported->platformMenu()) {
        exported->fill(menu);
      } else {
        icon->setContextMenu(nullptr);
        exported.reset();
      }
    }
    paint();
    icon->show();
  }

  /// Sends the bar what has changed, and nothing else.
  void paint() {
    if (!icon) return;
    const Ink ink = this->ink();
    if (!painted || *painted != button || paintedInk != ink) {
      icon->setIcon(platform::icon(button, ink));
    }
    painted = button;
    paintedInk = ink;
    const QString toolTip =
        exported ? displayText(button.toolTip) : verbatimToolTip(button.toolTip);
    if (icon->toolTip() != toolTip) icon->setToolTip(toolTip);
  }

  Ink ink() const {
    if (button.contentTintColor) return {toQColor(*button.contentTintColor), {}};
    if (button.image && !button.image->isTemplate) return {};
    if (!exported) {
      if (const auto foreground = SystemTray::foreground()) return {*foreground, {}};
    }
    // Bars rarely say whether they are light or dark. The rim is seen only if the guess was wrong.
    const QPalette palette = QApplication::palette();
    return {palette.color(QPalette::WindowText), palette.color(QPalette::Window)};
  }

  /// Opens the menu on the screen, which bars that read it over D-Bus do not ask for. Each opening
  /// has a menu of its own, so that an open one is not touched by a new menu.
  void open() {
    if (QWidget* alert = QApplication::activeModalWidget()) {
      alert->raise();
      alert->activateWindow();
      return;
    }
    if (menu.items.empty()) return;
    opened = popupMenu(menu);
    opened->popup(QCursor::pos());
  }

  bool eventFilter(QObject* object, QEvent* event) override {
    if (object == qApp && event->type() == QEvent::ApplicationPaletteChange) paint();
    return false;
  }

  StatusBarButton button;
  Menu menu;
  std::optional<StatusBarButton> painted;
  Ink paintedInk;
  std::unique_ptr<QMenu> opened;
  // Panels may still send the numbers of entries that they read before the menu was replaced; they
  // reach the retired menu and carry out what the user saw.
  std::unique_ptr<ExportedMenu> retired, exported;
  std::unique_ptr<QSystemTrayIcon> icon;
  SystemTray tray{[this] { appear(); }};
};

// How wide an item is, the bar decides.
StatusItem::StatusItem(double) : implementation(std::make_unique<Implementation>()) {}

StatusItem::~StatusItem() = default;

bool StatusItem::hasButton() const {
  return true;
}

void StatusItem::setButton(const StatusBarButton& button) {
  implementation->button = button;
  implementation->paint();
}

void StatusItem::setMenu(const Menu& menu) {
  if (menu == implementation->menu) return;
  const bool sameCommands = haveSameCommands(menu, implementation->menu);
  implementation->menu = menu;
  if (!implementation->exported) return;
  if (sameCommands) {
    implementation->exported->update(menu);
    return;
  }
  auto exported = std::make_unique<ExportedMenu>();
  // Qt frees what answers the old menu's calls when the icon lets go of it, and would then pass on
  // to it those that were on their way.
  implementation->exported->answerCalls();
  implementation->icon->setContextMenu(exported.get());
  implementation->exported->refuseCalls();
  exported->fill(menu);
  implementation->retired = std::exchange(implementation->exported, std::move(exported));
}

}  // namespace platform
