#include "platform/StatusItem.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QIconEngine>
#include <QPainter>
#include <QSvgRenderer>
#include <QSystemTrayIcon>
#include <algorithm>

#include "platform/qt/Conversions.h"
#include "platform/qt/MenuRendering.h"
#include "platform/qt/Rendering.h"
#include "platform/qt/SystemTray.h"

namespace platform {
namespace {

struct Ink {
  QColor fill;
  QColor rim;  ///< around what is filled, if valid

  friend bool operator==(const Ink&, const Ink&) = default;
};

/// Draws a button at the size that is asked for: its symbol, or else its title.
class ButtonIcon : public QIconEngine {
 public:
  ButtonIcon(StatusBarButton shownButton, const Ink& chosenInk)
      : button(std::move(shownButton)), ink(chosenInk) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
    const qreal ratio = painter->device()->devicePixelRatio();
    if (ink.rim.isValid()) {
      const QImage rim = drawn(rect.size(), ratio, ink.rim);
      const int reach = std::max(1, rect.height() / 24);
      for (const int dy : {-reach, 0, reach})
        for (const int dx : {-reach, 0, reach})
          painter->drawImage(rect.topLeft() + QPoint(dx, dy), rim);
    }
    painter->drawImage(rect.topLeft(), drawn(rect.size(), ratio, ink.fill));
  }

  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    paint(&painter, pixmap.rect(), mode, state);
    return pixmap;
  }

  QIconEngine* clone() const override { return new ButtonIcon(*this); }

 private:
  QImage drawn(const QSize& size, qreal ratio, const QColor& color) const {
    QImage image(size * ratio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    const QRect frame(QPoint(0, 0), size);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const auto drawing =
        button.image ? symbolDrawing(button.image->systemSymbolName) : std::nullopt;
    if (drawing) {
      QSvgRenderer symbol(toQString(drawing->native()));
      symbol.setAspectRatioMode(Qt::KeepAspectRatio);
      symbol.render(&painter, frame);
    } else if (!button.title.empty()) {
      QFont font = QApplication::font();
      font.setPixelSize(size.height());
      painter.setFont(font);
      painter.drawText(frame, Qt::AlignCenter | Qt::TextSingleLine, toQString(button.title));
    }
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(frame, color);
    return image;
  }

  StatusBarButton button;
  Ink ink;
};

}  // namespace

/// The icon is made once there is a place for it: Qt chooses between the two kinds of tray when the
/// first icon of a process is made, and keeps to its choice.
struct StatusItem::Implementation : QObject {
  Implementation() { qApp->installEventFilter(this); }

  void appear() {
    if (!icon) {
      icon = std::make_unique<QSystemTrayIcon>();
      connect(icon.get(), &QSystemTrayIcon::activated, this, [this] { open(); });
      icon->setContextMenu(&exported);
      isExported = exported.platformMenu() != nullptr;
      if (!isExported) icon->setContextMenu(nullptr);
    }
    paint();
    icon->show();
  }

  /// Sends the bar what has changed, and nothing else.
  void paint() {
    if (!icon) return;
    const Ink ink = this->ink();
    if (painted != button || paintedInk != ink) icon->setIcon(QIcon(new ButtonIcon(button, ink)));
    painted = button;
    paintedInk = ink;
    const QString toolTip =
        isExported ? displayText(button.toolTip) : verbatimToolTip(button.toolTip);
    if (icon->toolTip() != toolTip) icon->setToolTip(toolTip);
  }

  Ink ink() const {
    if (button.contentTintColor) return {toQColor(*button.contentTintColor), {}};
    if (button.image && !button.image->isTemplate) return {Qt::black, {}};
    if (const auto foreground = SystemTray::foreground(); foreground && !isExported)
      return {*foreground, {}};
    // Bars rarely say whether they are light or dark. The rim is seen only if the guess was wrong.
    const QPalette palette = QApplication::palette();
    return {palette.color(QPalette::WindowText), palette.color(QPalette::Window)};
  }

  /// Opens the menu on the screen, which bars that read it over D-Bus do not ask for. Each opening
  /// has a menu of its own, so that an open one is not touched by a new menu.
  void open() {
    if (raiseAlert() || menu.items.empty()) return;
    opened = popupMenu(menu);
    opened->popup(QCursor::pos());
  }

  bool eventFilter(QObject* object, QEvent* event) override {
    if (object == qApp && event->type() == QEvent::ApplicationPaletteChange) paint();
    return false;
  }

  StatusBarButton button;
  std::optional<StatusBarButton> painted;
  Ink paintedInk;
  Menu menu;
  std::unique_ptr<QMenu> opened;
  ExportedMenu exported;
  bool isExported = false;
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
  implementation->menu = menu;
  implementation->exported.setMenu(menu);
}

}  // namespace platform
