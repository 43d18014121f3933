#pragma once

#include <QApplication>
#include <QList>
#include <QPushButton>
#include <QString>
#include <QWidget>

/// The one visible window that is a `Type`, or null.
template <typename Type>
Type* visibleWindow() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    auto* window = qobject_cast<Type*>(widget);
    if (window && window->isVisible()) return window;
  }
  return nullptr;
}

/// The button in `window` that has `title`, as it is written for Qt.
inline QPushButton* button(const QWidget& window, const QString& title) {
  for (QPushButton* candidate : window.findChildren<QPushButton*>()) {
    if (candidate->text() == title) return candidate;
  }
  return nullptr;
}
