#include "platform/Alert.h"

#include <QApplication>
#include <QGridLayout>
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

/// The box makes its labels when it gets their texts, and gives no access to them otherwise.
void setTexts(QMessageBox& box, const Alert& alert) {
  box.setText(breakable(alert.messageText));
  box.setInformativeText(breakable(alert.informativeText));
  if (auto* message = box.findChild<QLabel*>(u"qt_msgbox_label"_s)) {
    message->setTextFormat(Qt::PlainText);
    message->setAccessibleName(displayText(alert.messageText));
    QFont font = message->font();
    font.setBold(true);
    message->setFont(font);
  }
  if (auto* informative = box.findChild<QLabel*>(u"qt_msgbox_informativelabel"_s)) {
    informative->setTextFormat(Qt::PlainText);
    informative->setAccessibleName(displayText(alert.informativeText));
  }
}

/// The box takes its width from the message, which leaves little room below a short one.
void widen(QMessageBox& box) {
  if (auto* layout = qobject_cast<QGridLayout*>(box.layout())) {
    layout->addItem(new QSpacerItem(400, 0), layout->rowCount(), 0, 1, layout->columnCount());
  }
}

}  // namespace

int runModal(const Alert& given) {
  const Alert alert = completed(given);
  QMessageBox box;
  box.setWindowTitle(QGuiApplication::applicationDisplayName());
  box.setIcon(icon(alert.alertStyle));
  setTexts(box, alert);

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
    buttons.push_back(button);
  }
  widen(box);

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
