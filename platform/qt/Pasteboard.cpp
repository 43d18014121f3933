#include "platform/Pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>

#include "platform/qt/Conversions.h"

namespace platform::GeneralPasteboard {

void clearContents() {
  QGuiApplication::clipboard()->clear();
}

void setString(const std::string& text) {
  QGuiApplication::clipboard()->setText(toQString(text));
}

}  // namespace platform::GeneralPasteboard
