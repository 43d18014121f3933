#include "platform/qt/SymbolMasks.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>
#include <algorithm>
#include <numeric>

#include "platform/qt/Conversions.h"

namespace platform {

namespace {

QByteArray contentOf(const std::filesystem::path& path) {
  QFile file(toQString(path.native()));
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

SymbolMasks emptyMasks() {
  SymbolMasks masks;
  std::ranges::transform(iconSizes, masks.begin(), [](int size) {
    QImage mask(size, size, QImage::Format_Alpha8);
    mask.fill(0);
    return mask;
  });
  return masks;
}

}  // namespace

SymbolMasks drawMasks(const std::filesystem::path& drawing) {
  QSvgRenderer symbol(toQString(drawing.native()));
  symbol.setAspectRatioMode(Qt::KeepAspectRatio);
  SymbolMasks masks = emptyMasks();
  for (QImage& mask : masks) {
    QImage image(mask.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    symbol.render(&painter, image.rect());
    painter.end();
    mask = image.convertToFormat(QImage::Format_Alpha8);
  }
  return masks;
}

// It consists of the drawing itself and of the masks after it, row by row, a byte a pixel.

QByteArray drawnAhead(const std::filesystem::path& drawing) {
  QByteArray content = contentOf(drawing);
  for (const QImage& mask : drawMasks(drawing)) {
    for (int y = 0; y < mask.height(); ++y) {
      content.append(reinterpret_cast<const char*>(mask.constScanLine(y)), mask.width());
    }
  }
  return content;
}

SymbolMasks masksOf(const std::filesystem::path& drawing) {
  const QByteArray drawn = contentOf(drawing);
  const QByteArray ahead = contentOf(std::filesystem::path(drawing).replace_extension(".masks"));
  const int pixels = std::inner_product(iconSizes.begin(), iconSizes.end(), iconSizes.begin(), 0);
  if (!ahead.startsWith(drawn) || ahead.size() != drawn.size() + pixels) return drawMasks(drawing);
  SymbolMasks masks = emptyMasks();
  auto row = ahead.begin() + drawn.size();
  for (QImage& mask : masks) {
    for (int y = 0; y < mask.height(); ++y) {
      std::copy_n(row, mask.width(), mask.scanLine(y));
      row += mask.width();
    }
  }
  return masks;
}

}  // namespace platform
