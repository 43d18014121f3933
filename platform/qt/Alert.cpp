#include "platform/Alert.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <algorithm>

#include "platform/qt/Conversions.h"
#include "platform/qt/Rendering.h"

using namespace Qt::StringLiterals;

namespace platform {

namespace {

QMessageBox::Icon icon(AlertStyle style) {
  switch (style) {
    case AlertStyle::warning:
      return QMessageBox::Warning;
    case AlertStyle::informational:
      return QMessageBox::Information;
    case AlertStyle::critical:
      return QMessageBox::Critical;
  }
  return QMessageBox::NoIcon;
}

/// What the platform words itself, worded.
Alert completed(Alert alert) {
  if (alert.error) alert.messageText = alert.error->description;
  if (alert.buttons.empty()) alert.buttons = {"OK"};
  return alert;
}

/// The box takes its width from the message, which leaves little room beside a short one.
constexpr int messageWidth = 360;

/// The label of the informative text has no setter for its format.
void styleTexts(QMessageBox& box) {
  box.setTextFormat(Qt::PlainText);
  for (QLabel* label : box.findChildren<QLabel*>()) label->setTextFormat(Qt::PlainText);
  if (auto* message = box.findChild<QLabel*>(u"qt_msgbox_label"_s)) {
    QFont font = message->font();
    font.setBold(true);
    message->setFont(font);
    message->setMinimumWidth(messageWidth);
  }
}

}  // namespace

int runModal(const Alert& given) {
  const Alert alert = completed(given);
  QMessageBox box;
  box.setWindowTitle(QGuiApplication::applicationDisplayName());
  box.setIcon(icon(alert.alertStyle));
  box.setText(toQString(alert.messageText));
  box.setInformativeText(toQString(alert.informativeText));
  styleTexts(box);

  std::vector<QAbstractButton*> buttons;
  for (const std::string& title : alert.buttons) {
    const auto role = title == "Cancel" ? QMessageBox::RejectRole
                      : buttons.empty() ? QMessageBox::AcceptRole
                                        : QMessageBox::ActionRole;
    QPushButton* button = box.addButton(verbatimTitle(title), role);
    button->setAutoDefault(false);
    if (buttons.empty()) {
      box.setDefaultButton(button);
      makeDefaultButton(*button, box);
    }
    if (role == QMessageBox::RejectRole) box.setEscapeButton(button);
    buttons.push_back(button);
  }

  while (QWidget* popup = QApplication::activePopupWidget()) popup->close();
  box.show();
  box.raise();
  box.activateWindow();
  box.exec();
  const auto answer = std::find(buttons.begin(), buttons.end(), box.clickedButton());
  return answer == buttons.end()
             ? 0
             : alertFirstButtonReturn + static_cast<int>(answer - buttons.begin());
}

}  // namespace platform
