#include "platform/qt/Rendering.h"

#include <QApplication>
#include <QPalette>
#include <QRegularExpression>
#include <QShortcut>
#include <QTextDocument>

#include "platform/Bundle.h"
#include "platform/MainQueue.h"
#include "platform/qt/Conversions.h"

using namespace Qt::StringLiterals;

namespace platform {

QString displayText(const std::string& text) {
  constexpr qsizetype longest = 40'000;
  QString whole = toQString(text);
  if (whole.size() <= longest) return whole;
  return whole.first(longest / 2) + u'…' + whole.last(longest / 2);
}

QString verbatimTitle(const std::string& text) {
  return displayText(text).replace(u'&', u"&&"_s);
}

QString breakable(const std::string& text) {
  static const QRegularExpression longWord(u"(\\S{24})(?=\\S)"_s);
  return displayText(text).replace(longWord, u"\\1\u200B"_s);
}

QString verbatimToolTip(const std::string& text) {
  // Only HTML is wrapped; plain text would run off the screen.
  constexpr qsizetype shortEnough = 60;
  QString plain = displayText(text);
  if (plain.size() <= shortEnough && !Qt::mightBeRichText(plain)) return plain;
  return u"<p style='white-space:pre-wrap'>"_s + breakable(text).toHtmlEscaped() + u"</p>"_s;
}

QColor toQColor(Color color) {
  const QPalette palette = QApplication::palette();
  const bool dark = palette.color(QPalette::Window).lightness() < 128;
  switch (color) {
    case Color::systemOrange:
      return dark ? QColor(0xFF9F0A) : QColor(0xFF9500);
    case Color::systemRed:
      return dark ? QColor(0xFF453A) : QColor(0xFF3B30);
    case Color::controlBackground:
      return palette.color(QPalette::Base);
  }
  return {};
}

std::optional<std::filesystem::path> symbolDrawing(const std::string& name) {
  if (name.find('/') != std::string::npos) return std::nullopt;
  return Bundle::urlForResource("symbols/" + name + ".svg");
}

void makeDefaultButton(QPushButton& button, QWidget& window) {
  button.setDefault(true);
  for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
    auto* shortcut = new QShortcut(key, &window);
    shortcut->setAutoRepeat(false);
    QObject::connect(shortcut, &QShortcut::activated, &button, [&button] { button.click(); });
  }
}

bool raiseAlert() {
  QWidget* const alert = QApplication::activeModalWidget();
  if (!alert) return false;
  alert->raise();
  alert->activateWindow();
  return true;
}

void performLater(const Action& action) {
  MainQueue::async([action] {
    if (!raiseAlert()) action.perform();
  });
}

}  // namespace platform
