#include "platform/Window.h"

#include <QApplication>
#include <QFontDatabase>
#include <QLabel>
#include <QMainWindow>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <cmath>
#include <map>

#include "platform/qt/Conversions.h"
#include "platform/qt/Rendering.h"

using namespace Qt::StringLiterals;

namespace platform {
namespace {

int pixels(double points) {
  return static_cast<int>(std::lround(points));
}

QFont::Weight toQFontWeight(FontWeight weight) {
  switch (weight) {
    case FontWeight::regular:
      return QFont::Normal;
    case FontWeight::medium:
      return QFont::Medium;
    case FontWeight::semibold:
      return QFont::DemiBold;
  }
  return QFont::Normal;
}

/// A point is a pixel here, as the frames around the texts have it too.
QFont toQFont(const Font& font) {
  QFont result = font.design == FontDesign::monospacedSystem
                     ? QFontDatabase::systemFont(QFontDatabase::FixedFont)
                     : QApplication::font();
  result.setPixelSize(pixels(font.size));
  result.setWeight(toQFontWeight(font.weight));
  return result;
}

constexpr Font controlFont = {.size = 13};

class PlainWidget : public QWidget {
 public:
  PlainWidget(const PlainView& view, QWidget* parent) : QWidget(parent), layer(view.layer) {}

 protected:
  void paintEvent(QPaintEvent*) override {
    if (!layer) return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(toQColor(layer->backgroundColor));
    painter.drawRoundedRect(rect(), layer->cornerRadius, layer->cornerRadius);
  }

 private:
  std::optional<PlainView::Layer> layer;
};

/// Draws its text in one line, whatever the text holds, and keeps it whole for everything else.
class SingleLineLabel : public QLabel {
 public:
  SingleLineLabel(Qt::TextElideMode mode, QWidget* parent) : QLabel(parent), elideMode(mode) {}

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    QString line = text();
    for (QChar& character : line) {
      if (character.isSpace()) character = u' ';
    }
    painter.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                     fontMetrics().elidedText(line, elideMode, width()));
  }

 private:
  Qt::TextElideMode elideMode;
};

QWidget* makeLabel(const Label& label, QWidget* parent) {
  QLabel* widget = nullptr;
  switch (label.lineBreakMode) {
    case LineBreakMode::byWordWrapping:
      widget = new QLabel(parent);
      widget->setWordWrap(true);
      widget->setAlignment(Qt::AlignLeft | Qt::AlignTop);
      break;
    case LineBreakMode::byClipping:
      widget = new SingleLineLabel(Qt::ElideNone, parent);
      break;
    case LineBreakMode::byTruncatingMiddle:
      widget = new SingleLineLabel(Qt::ElideMiddle, parent);
      break;
  }
  widget->setTextFormat(Qt::PlainText);
  widget->setText(displayText(label.text));
  widget->setFont(toQFont(label.font.value_or(controlFont)));
  widget->setToolTip(verbatimToolTip(label.toolTip));
  widget->setAccessibleDescription(displayText(label.toolTip));
  return widget;
}

}  // namespace

struct Window::Implementation {
  explicit Implementation(const WindowContent& content) {
    Qt::WindowFlags flags = Qt::Window | Qt::CustomizeWindowHint;
    flags.setFlag(Qt::WindowTitleHint, content.styleMask.titled);
    flags.setFlag(Qt::WindowSystemMenuHint, content.styleMask.closable);
    flags.setFlag(Qt::WindowCloseButtonHint, content.styleMask.closable);
    flags.setFlag(Qt::WindowMinimizeButtonHint, content.styleMask.miniaturizable);
    flags.setFlag(Qt::WindowMaximizeButtonHint, content.styleMask.resizable);
    window.setWindowFlags(flags);
    window.setWindowTitle(displayText(content.title));
    const QSize size(pixels(content.contentView.frame.width),
                     pixels(content.contentView.frame.height));
    if (content.styleMask.resizable) {
      window.resize(size);
    } else {
      window.setFixedSize(size);
    }
    add(content.contentView, window, size.height());
  }

  /// Frames count from the bottom left of the view around them, whose height is `height`.
  void add(const View& view, QWidget& parent, int height) {
    QWidget* widget =
        std::visit([&](const auto& content) { return make(content, parent); }, view.content);
    const Rect& frame = view.frame;
    widget->setGeometry(pixels(frame.x), height - pixels(frame.y) - pixels(frame.height),
                        pixels(frame.width), pixels(frame.height));
    for (const View& subview : view.subviews) add(subview, *widget, widget->height());
  }

  QWidget* make(const PlainView& view, QWidget& parent) { return new PlainWidget(view, &parent); }

  QWidget* make(const Label& label, QWidget& parent) { return makeLabel(label, &parent); }

  QWidget* make(const Button& button, QWidget& parent) {
    auto* widget = new QPushButton(verbatimTitle(button.title), &parent);
    widget->setFont(toQFont(controlFont));
    QObject::connect(widget, &QPushButton::clicked, widget,
                     [action = button.action] { performLater(action); });
    if (button.keyEquivalent == "\r") {
      makeDefaultButton(*widget, window);
      widget->setFocus();
    }
    buttons[button.identifier] = widget;
    return widget;
  }

  QMainWindow window;
  std::map<std::string, QPushButton*> buttons;
};

Window::Window(const WindowContent& content)
    : implementation(std::make_unique<Implementation>(content)) {}

Window::~Window() = default;

void Window::center() {
  QWidget& window = implementation->window;
  QRect frame = window.frameGeometry();
  frame.moveCenter(window.screen()->availableGeometry().center());
  window.move(frame.topLeft());
}

void Window::makeKeyAndOrderFront() {
  implementation->window.show();
  implementation->window.raise();
  implementation->window.activateWindow();
}

void Window::close() {
  implementation->window.close();
}

void Window::setButtonTitle(const std::string& identifier, const std::string& title) {
  implementation->buttons.at(identifier)->setText(verbatimTitle(title));
}

}  // namespace platform
