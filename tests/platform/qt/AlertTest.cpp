#include "platform/Alert.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QMessageBox>
#include <QTest>
#include <functional>
#include <string>

#include "Commands.h"
#include "MainLoop.h"
#include "Widgets.h"
#include "platform/MainQueue.h"
#include "platform/qt/Rendering.h"

namespace {

using namespace platform;

/// The response of `alert` if `meanwhile` is done to it once it is open.
int responseAfter(const Alert& alert, const std::function<void(QMessageBox&)>& meanwhile) {
  MainQueue::asyncAfter(0.05, [&] { meanwhile(*visibleWindow<QMessageBox>()); });
  return runModal(alert);
}

std::function<void(QMessageBox&)> press(Qt::Key key) {
  return [key](QMessageBox& box) { QTest::keyClick(box.windowHandle(), key); };
}

const Alert quitAlert = {.messageText = "Quit Pellix?",
                         .informativeText = "This closes the menu bar icon only.",
                         .buttons = {"Quit", "Cancel"},
                         .alertStyle = AlertStyle::informational};

TEST(Alert, returnAndEnterGiveTheFirstButton) {
  EXPECT_EQ(responseAfter(quitAlert, press(Qt::Key_Return)), alertFirstButtonReturn);
  EXPECT_EQ(responseAfter(quitAlert, press(Qt::Key_Enter)), alertFirstButtonReturn);
}

TEST(Alert, returnGivesTheFirstButtonWhicheverHasTheFocus) {
  EXPECT_EQ(responseAfter(quitAlert,
                          [](QMessageBox& box) {
                            button(box, QStringLiteral("Cancel"))->setFocus();
                            press(Qt::Key_Return)(box);
                          }),
            alertFirstButtonReturn);
}

TEST(Alert, spaceGivesTheButtonWithTheFocus) {
  EXPECT_EQ(responseAfter(quitAlert,
                          [](QMessageBox& box) {
                            button(box, QStringLiteral("Cancel"))->setFocus();
                            press(Qt::Key_Space)(box);
                          }),
            alertFirstButtonReturn + 1);
}

TEST(Alert, escapeAndClosingGiveCancel) {
  EXPECT_EQ(responseAfter(quitAlert, press(Qt::Key_Escape)), alertFirstButtonReturn + 1);
  EXPECT_EQ(responseAfter(quitAlert, [](QMessageBox& box) { box.close(); }),
            alertFirstButtonReturn + 1);
}

TEST(Alert, withoutCancelEscapeGivesNothing) {
  const Alert alert = {.messageText = "?", .buttons = {"One", "Two & three"}};
  EXPECT_EQ(responseAfter(alert,
                          [](QMessageBox& box) {
                            press(Qt::Key_Escape)(box);
                            box.close();
                            EXPECT_TRUE(box.isVisible());
                            button(box, QStringLiteral("Two && three"))->click();
                          }),
            alertFirstButtonReturn + 1);
}

TEST(Alert, showsItsTextsVerbatim) {
  const Alert alert = {.messageText = "<b>one</b> & two", .informativeText = "<i>three</i>"};
  responseAfter(alert, [](QMessageBox& box) {
    EXPECT_EQ(box.text(), QStringLiteral("<b>one</b> & two"));
    EXPECT_EQ(box.informativeText(), QStringLiteral("<i>three</i>"));
    for (const QLabel* label : box.findChildren<QLabel*>()) {
      EXPECT_TRUE(label->text().isEmpty() || label->textFormat() == Qt::PlainText);
    }
    press(Qt::Key_Return)(box);
  });
}

TEST(Alert, showsAPathThatIsWiderThanItself) {
  const Alert alert = {.messageText = "Not found: /" + std::string(1000, 'W')};
  responseAfter(alert, [&](QMessageBox& box) {
    EXPECT_LT(box.width(), 800);
    for (const QLabel* label : box.findChildren<QLabel*>()) {
      EXPECT_GE(label->width(), label->minimumSizeHint().width());
    }
    press(Qt::Key_Return)(box);
  });
}

TEST(Alert, forAnErrorHasItsDescriptionAndOneButton) {
  const Error error("domain", 1, "velmor-guard binary missing from the app bundle.");
  responseAfter(Alert::withError(error), [](QMessageBox& box) {
    EXPECT_EQ(box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))->accessibleName(),
              QStringLiteral("velmor-guard binary missing from the app bundle."));
    EXPECT_EQ(box.buttons().size(), 1);
    press(Qt::Key_Escape)(box);
  });
}

TEST(Alert, theMainQueueRunsMeanwhile) {
  int blocks = 0;
  responseAfter(quitAlert, [&](QMessageBox& box) {
    MainQueue::async([&, shown = &box] {
      ++blocks;
      press(Qt::Key_Escape)(*shown);
    });
  });
  EXPECT_EQ(blocks, 1);
}

TEST(Alert, alertsMayBeNested) {
  const int outer = responseAfter(quitAlert, [](QMessageBox& first) {
    const Alert inner = {.messageText = "Again"};
    MainQueue::asyncAfter(0.05, [] {
      auto* top = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_TRUE(top);
      press(Qt::Key_Return)(*top);
    });
    EXPECT_EQ(runModal(inner), alertFirstButtonReturn);
    press(Qt::Key_Escape)(first);
  });
  EXPECT_EQ(outer, alertFirstButtonReturn + 1);
}

TEST(Alert, commandsAreIgnoredWhileOneIsOpen) {
  const auto commands = Commands::make();
  responseAfter(quitAlert, [&](QMessageBox& box) {
    performLater(commands->action<"quit">());
    runMainLoop(0.05);
    press(Qt::Key_Escape)(box);
  });
  EXPECT_TRUE(commands->performed.empty());
  performLater(commands->action<"quit">());
  EXPECT_TRUE(runMainLoopUntil([&] { return commands->performed.size() == 1; }));
}

}  // namespace
