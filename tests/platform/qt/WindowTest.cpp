#include "platform/Window.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QLabel>
#include <QMainWindow>
#include <QTest>
#include <memory>
#include <string>

#include "Commands.h"
#include "MainLoop.h"
#include "Widgets.h"

namespace {

using namespace platform;
using Names = std::vector<std::string>;

/// A box with an identifier, a button for it and a default button.
WindowContent content(Commands& commands, const std::string& identifier) {
  View box{.frame = {28, 88, 464, 56},
           .content = PlainView{PlainView::Layer{Color::controlBackground, 8}}};
  box.subviews = {{.frame = {12, 16, 440, 24},
                   .content = Label{.text = identifier,
                                    .font = Font{FontDesign::monospacedSystem, 13},
                                    .lineBreakMode = LineBreakMode::byTruncatingMiddle,
                                    .toolTip = identifier}}};
  View root{.frame = {0, 0, 520, 280}};
  root.subviews = {
      {.frame = {28, 160, 460, 50},
       .content = Label{.text = "Send this to Orlen / IT with your work email. They will whitelist "
                                "this Mac, then you can authorize from the menu bar shield.",
                        .lineBreakMode = LineBreakMode::byWordWrapping}},
      box,
      {.frame = {28, 28, 160, 32},
       .content =
           Button{
               .identifier = "copy", .title = "Copy & go", .action = commands.action<"copyId">()}},
      {.frame = {400, 28, 90, 32},
       .content = Button{.identifier = "done",
                         .title = "Done",
                         .action = commands.action<"closeWindow">(),
                         .keyEquivalent = "\r"}}};
  return {.title = "Velmor Pellix",
          .styleMask = {.titled = true, .closable = true},
          .contentView = root};
}

class ShownWindow : public testing::Test {
 protected:
  void show(const std::string& identifier = "HW-UUID-1") {
    window = std::make_unique<Window>(content(*commands, identifier));
    window->center();
    window->makeKeyAndOrderFront();
    ASSERT_TRUE(runMainLoopUntil([this] {
      widget = visibleWindow<QMainWindow>();
      return widget && widget->isActiveWindow();
    }));
    identifierLabel = nullptr;
    for (QLabel* label : widget->findChildren<QLabel*>()) {
      if (label->text() == QString::fromStdString(identifier)) identifierLabel = label;
    }
    ASSERT_TRUE(identifierLabel);
  }

  Names performedAfter(Qt::Key key) {
    commands->performed.clear();
    QTest::keyClick(widget->windowHandle(), key);
    runMainLoop(0.05);
    return commands->performed;
  }

  std::shared_ptr<Commands> commands = Commands::make();
  std::unique_ptr<Window> window;
  QMainWindow* widget = nullptr;
  QLabel* identifierLabel = nullptr;
};

const std::string awkwardIdentifiers[] = {"",
                                          "—",
                                          "<b>x</b>",
                                          "&x_ && y",
                                          "line\nbreaks\r\n\ttabs",
                                          "\u202eשלום",
                                          std::string(10'000, 'W')};

TEST_F(ShownWindow, hasTheSizeOfItsContentWhateverTheTextIs) {
  for (const std::string& identifier : awkwardIdentifiers) {
    show(identifier);
    EXPECT_EQ(widget->size(), QSize(520, 280));
    EXPECT_EQ(widget->minimumSize(), widget->maximumSize());
    EXPECT_EQ(identifierLabel->mapTo(widget, QPoint(0, 0)), QPoint(40, 280 - 88 - 16 - 24));
    EXPECT_EQ(identifierLabel->size(), QSize(440, 24));
  }
}

TEST_F(ShownWindow, describesTheWholeTextHoweverItIsDrawn) {
  for (const std::string& identifier : awkwardIdentifiers) {
    show(identifier);
    EXPECT_EQ(identifierLabel->text().toStdString(), identifier);
    EXPECT_EQ(identifierLabel->accessibleDescription().toStdString(), identifier);
    EXPECT_EQ(identifierLabel->textFormat(), Qt::PlainText);
  }
}

TEST_F(ShownWindow, drawsALongTextWithItsMiddleElided) {
  const auto drawn = [this](const std::string& identifier) {
    show(identifier);
    return identifierLabel->grab().toImage();
  };
  const std::string middle(1000, 'm');
  EXPECT_EQ(drawn("start" + middle + "end"), drawn("start" + middle + "m" + "end"));
  EXPECT_NE(drawn("start" + middle + "end"), drawn("Start" + middle + "end"));
  EXPECT_NE(drawn("start" + middle + "end"), drawn("start" + middle + "enD"));
}

TEST_F(ShownWindow, showsBothEndsOfATextThatIsTooLongToLayOut) {
  const std::string identifier = "start" + std::string(5'000'000, 'x') + "end";
  window = std::make_unique<Window>(content(*commands, identifier));
  window->makeKeyAndOrderFront();
  ASSERT_TRUE(runMainLoopUntil([this] { return (widget = visibleWindow<QMainWindow>()); }));
  for (const QLabel* label : widget->findChildren<QLabel*>()) {
    if (label->wordWrap()) continue;
    EXPECT_LT(label->text().size(), 50'000);
    EXPECT_TRUE(label->text().startsWith(QStringLiteral("startx")));
    EXPECT_TRUE(label->text().endsWith(QStringLiteral("xend")));
    EXPECT_LT(label->toolTip().size(), 100'000);
  }
}

TEST_F(ShownWindow, toolTipsAreNeverReadAsHtml) {
  show("HW-UUID-1");
  EXPECT_EQ(identifierLabel->toolTip(), QStringLiteral("HW-UUID-1"));
  show("<b>x</b>");
  EXPECT_TRUE(identifierLabel->toolTip().contains(QStringLiteral("&lt;b&gt;x&lt;/b&gt;")));
}

TEST_F(ShownWindow, aWrappedTextFitsItsFrame) {
  show();
  for (const QLabel* label : widget->findChildren<QLabel*>()) {
    if (label->wordWrap()) {
      EXPECT_LE(label->heightForWidth(label->width()), label->height());
    }
  }
}

TEST_F(ShownWindow, pressingAButtonPerformsItsAction) {
  show();
  button(*widget, QStringLiteral("Copy && go"))->click();
  EXPECT_TRUE(runMainLoopUntil([this] { return commands->performed == Names{"copyId"}; }));
}

TEST_F(ShownWindow, aButtonWhoseTargetIsGoneDoesNothing) {
  show();
  commands.reset();
  button(*widget, QStringLiteral("Done"))->click();
  runMainLoop(0.05);
  EXPECT_TRUE(widget->isVisible());
}

TEST_F(ShownWindow, theDefaultButtonHasTheFocusAtFirst) {
  show();
  EXPECT_TRUE(button(*widget, QStringLiteral("Done"))->hasFocus());
}

TEST_F(ShownWindow, returnAndEnterPressTheDefaultButtonWhicheverHasTheFocus) {
  show();
  for (const char* title : {"Copy && go", "Done"}) {
    button(*widget, QString::fromLatin1(title))->setFocus();
    EXPECT_EQ(performedAfter(Qt::Key_Return), Names{"closeWindow"}) << title;
    EXPECT_EQ(performedAfter(Qt::Key_Enter), Names{"closeWindow"}) << title;
  }
}

TEST_F(ShownWindow, spacePressesTheButtonWithTheFocusAndTabReachesAll) {
  show();
  button(*widget, QStringLiteral("Copy && go"))->setFocus();
  EXPECT_EQ(performedAfter(Qt::Key_Space), Names{"copyId"});
  EXPECT_EQ(performedAfter(Qt::Key_Tab), Names{});
  EXPECT_EQ(performedAfter(Qt::Key_Space), Names{"closeWindow"});
}

TEST_F(ShownWindow, escapeDoesNothing) {
  show();
  EXPECT_EQ(performedAfter(Qt::Key_Escape), Names{});
  EXPECT_TRUE(widget->isVisible());
}

TEST_F(ShownWindow, closingOnlyHidesIt) {
  show();
  widget->close();
  runMainLoop(0.05);
  EXPECT_FALSE(widget->isVisible());
  window->makeKeyAndOrderFront();
  EXPECT_TRUE(widget->isVisible());
  window->close();
  EXPECT_FALSE(widget->isVisible());
}

TEST_F(ShownWindow, aButtonCanGetAnotherTitle) {
  show();
  window->setButtonTitle("copy", "Copied & done!");
  EXPECT_TRUE(button(*widget, QStringLiteral("Copied && done!")));
  EXPECT_FALSE(button(*widget, QStringLiteral("Copy && go")));
}

TEST_F(ShownWindow, aCommandMayDestroyTheWindow) {
  show();
  struct Destroyer final : Target {
    explicit Destroyer(std::unique_ptr<Window>& target) : window(target) {}
    void destroy() { window.reset(); }
    std::unique_ptr<Window>& window;
  };
  const auto destroyer = std::make_shared<Destroyer>(window);
  WindowContent other{.contentView = {.frame = {0, 0, 100, 50}}};
  other.contentView.subviews = {
      {.frame = {0, 0, 90, 32},
       .content = Button{.title = "Go", .action = {destroyer, &Destroyer::destroy}}}};
  window = std::make_unique<Window>(other);
  window->makeKeyAndOrderFront();
  button(*visibleWindow<QMainWindow>(), QStringLiteral("Go"))->click();
  EXPECT_TRUE(runMainLoopUntil([this] { return !window; }));
}

}  // namespace
