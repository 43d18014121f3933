#include "platform/StatusItem.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QIcon>
#include <QImage>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QSystemTrayIcon>
#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "platform/qt/Conversions.h"
#include "platform/qt/MenuRendering.h"
#include "platform/qt/Rendering.h"
#include "platform/qt/SymbolMasks.h"
#include "platform/qt/SystemTray.h"

namespace platform {

namespace {

/// The title as an icon of that size.
QImage titleMask(const std::string& title, int size) {
  QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  if (!title.empty()) {  // as before the first poll: loading a font would delay the icon
    QPainter painter(&image);
    QFont font = QApplication::font();
    font.setPixelSize(size);
    painter.setFont(font);
    painter.drawText(image.rect(), Qt::AlignCenter | Qt::TextSingleLine, toQString(title));
  }
  return image.convertToFormat(QImage::Format_Alpha8);
}

SymbolMasks masks(const StatusBarButton& button) {
  if (button.image) {
    if (const auto drawing = symbolDrawing(button.image->systemSymbolName)) {
      return masksOf(*drawing);
    }
  }
  SymbolMasks masks;
  std::ranges::transform(iconSizes, masks.begin(),
                         [&](int size) { return titleMask(button.title, size); });
  return masks;
}

struct Ink {
  QColor fill;  ///< of all that the mask covers
  QColor rim;   ///< around it, if valid
  friend bool operator==(const Ink&, const Ink&) = default;
};

/// What `mask` covers, in `ink`. QPainter would do it too, and take half a megabyte for it.
QImage inked(const QImage& mask, const Ink& ink) {
  const int size = mask.width();
  const int reach = std::max(1, size / 24);
  const int stride = size + 2 * reach;
  const auto at = [&](std::ptrdiff_t x, std::ptrdiff_t y) {
    return static_cast<std::size_t>((y + reach) * stride + x + reach);
  };
  std::vector<uchar> coverage(at(stride, stride));  // with a margin that is not covered
  for (int y = 0; y < size; ++y) std::copy_n(mask.constScanLine(y), size, &coverage[at(0, y)]);
  const auto coverageAround = [&](int x, int y) {
    uchar most = 0;
    for (const int dy : {-reach, 0, reach}) {
      for (const int dx : {-reach, 0, reach}) most = std::max(most, coverage[at(x + dx, y + dy)]);
    }
    return int{most};
  };

  const QRgb filling = ink.fill.rgb();
  const QRgb rimming = ink.rim.rgb();
  QImage image(mask.size(), QImage::Format_ARGB32_Premultiplied);
  for (int y = 0; y < size; ++y) {
    auto* const row = reinterpret_cast<QRgb*>(image.scanLine(y));
    for (int x = 0; x < size; ++x) {
      const int fill = coverage[at(x, y)];
      const int rim = ink.rim.isValid() ? coverageAround(x, y) * (255 - fill) / 255 : 0;
      const auto blend = [&](int filled, int rimmed) {
        return (filled * fill + rimmed * rim) / 255;
      };
      row[x] = qRgba(blend(qRed(filling), qRed(rimming)), blend(qGreen(filling), qGreen(rimming)),
                     blend(qBlue(filling), qBlue(rimming)), fill + rim);
    }
  }
  return image;
}

/// The button at all sizes that bars ask for.
QIcon icon(const StatusBarButton& button, const Ink& ink) {
  QIcon icon;
  for (const QImage& mask : masks(button)) icon.addPixmap(QPixmap::fromImage(inked(mask, ink)));
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
      exported = std::make_unique<ExportedMenu>(menu);
      icon->setContextMenu(exported.get());
      if (!exported->platformMenu()) {
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
    if (button.image && !button.image->isTemplate) return {Qt::black, {}};
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
  auto exported = std::make_unique<ExportedMenu>(menu);
  // Qt frees what answers the old menu's calls when the icon lets go of it, and would then pass on
  // to it those that were on their way.
  implementation->exported->answerCalls();
  implementation->icon->setContextMenu(exported.get());
  implementation->exported->refuseCalls();
  exported->announce();
  implementation->retired = std::exchange(implementation->exported, std::move(exported));
}

}  // namespace platform
