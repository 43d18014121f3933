#include "platform/Menu.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMenu>
#include <QTest>
#include <algorithm>
#include <cstdlib>
#include <string>

#include "Commands.h"
#include "MainLoop.h"
#include "platform/StatusItem.h"
#include "platform/qt/MenuRendering.h"

namespace {

using namespace platform;
using namespace Qt::StringLiterals;

class RenderedMenu : public testing::Test {
 protected:
  Menu menu(const std::string& title) {
    return {{{.title = "State", .isEnabled = false},
             MenuItem::separatorItem(),
             {.title = title, .action = commands->action<"copy">(), .toolTip = "<b>Click</b>"},
             {.title = "No command"},
             {.title = "Quit", .action = commands->action<"quit">(), .keyEquivalent = "q"}}};
  }

  QString popupText(const std::string& title) {
    return popupMenu(menu(title))->actions()[2]->text();
  }

  QString exportedText(const std::string& title) {
    ExportedMenu exported;
    exported.setMenu(menu(title));
    return exported.actions()[2]->text();
  }

  std::shared_ptr<Commands> commands = Commands::make();
};

/// What a menu on the screen shows of `text`.
QString shown(QString text) {
  return text.replace(QStringLiteral("&&"), QStringLiteral("&"));
}

/// What a panel shows of `text`, after Qt has sent it.
QString shownByPanel(QString text) {
  const qsizetype ampersand = text.indexOf(u'&');
  if (ampersand >= 0 && ampersand != text.size() - 1) text[ampersand] = u'_';
  QString result;
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (text[i] == u'_' && ++i == text.size()) break;
    result += text[i];
  }
  return result;
}

QStringList visibleTitles(const QMenu& menu) {
  QStringList titles;
  for (const QAction* action : menu.actions())
    if (action->isVisible()) titles += action->text();
  return titles;
}

const std::string titles[] = {"R&D_lab", "A_B__C", "&",    "a&&b", "&x_",   "<b>x</b>",
                              "—",       "a\nb",   "_",    "&&&",  "__&_&", "\u202eשלום\u200f",
                              "",        "a&",     "_&_b", "😀&😀"};

TEST_F(RenderedMenu, showsTitlesVerbatim) {
  for (const std::string& title : titles) {
    EXPECT_EQ(shown(popupText(title)).toStdString(), title);
  }
}

TEST_F(RenderedMenu, showsBothEndsOfATitleThatIsTooLongToSend) {
  std::string title = "start";
  for (int i = 0; i < 1'000'000; ++i) title += "é";
  for (const QString& text : {popupText(title + "end"), exportedText(title + "end")}) {
    EXPECT_LT(text.size(), 50'000);
    EXPECT_TRUE(text.startsWith(QStringLiteral("starté")));
    EXPECT_TRUE(text.endsWith(QStringLiteral("éend")));
    EXPECT_FALSE(text.contains(QChar::ReplacementCharacter)) << "no character is cut in two";
  }
}

TEST_F(RenderedMenu, showsTitlesVerbatimInPanels) {
  for (const std::string& title : titles) {
    EXPECT_EQ(shownByPanel(exportedText(title)).toStdString(), title);
  }
  EXPECT_EQ(exportedText("a\tb"), QStringLiteral("a\tb"));
  EXPECT_EQ(exportedText(std::string(10'000, 'x')).size(), 10'000);
}

TEST_F(RenderedMenu, aTabDoesNotStartTheColumnOfKeys) {
  EXPECT_EQ(popupText("a\tb"), QStringLiteral("a b"));
}

TEST_F(RenderedMenu, isNarrowerThanTheScreen) {
  const auto narrow = popupMenu(menu("HW-UUID-1"));
  const auto wide = popupMenu(menu(std::string(10'000, 'W')));
  EXPECT_LT(wide->sizeHint().width(), wide->screen()->availableGeometry().width());
  EXPECT_GT(wide->sizeHint().width(), narrow->sizeHint().width());
  wide->grab();
}

TEST_F(RenderedMenu, onlyWhatHasACommandIsEnabled) {
  const auto rendered = popupMenu(menu("ID"));
  std::vector<bool> enabled;
  for (const QAction* action : rendered->actions()) {
    if (!action->isSeparator()) enabled.push_back(action->isEnabled());
  }
  EXPECT_EQ(enabled, (std::vector<bool>{false, true, false, true}));
}

TEST_F(RenderedMenu, toolTipsAreNeverReadAsHtml) {
  const auto rendered = popupMenu(menu("ID"));
  EXPECT_TRUE(rendered->toolTipsVisible());
  EXPECT_TRUE(
      rendered->actions()[2]->toolTip().contains(QStringLiteral("&lt;b&gt;Click&lt;/b&gt;")));
}

TEST_F(RenderedMenu, aKeyWorksWhileTheMenuIsOpenAndClosesIt) {
  const auto rendered = popupMenu(menu("ID"));
  rendered->popup({0, 0});
  QTest::keyClick(rendered.get(), Qt::Key_Q, Qt::ControlModifier);
  EXPECT_TRUE(runMainLoopUntil([&] { return commands->performed.size() == 1; }));
  EXPECT_EQ(commands->performed, std::vector<std::string>{"quit"});
  EXPECT_FALSE(rendered->isVisible());
}

TEST_F(RenderedMenu, aKeyAloneOrWithMoreModifiersDoesNothing) {
  const auto rendered = popupMenu(menu("ID"));
  rendered->popup({0, 0});
  QTest::keyClick(rendered.get(), Qt::Key_X, Qt::ControlModifier);
  QTest::keyClick(rendered.get(), Qt::Key_Q, Qt::ControlModifier | Qt::AltModifier);
  runMainLoop(0.05);
  EXPECT_TRUE(commands->performed.empty());
}

TEST_F(RenderedMenu, entriesInPanelsKeepTheirCommands) {
  ExportedMenu exported;
  exported.setMenu(menu("old"));
  const QList<QAction*> first = exported.actions();
  exported.setMenu(menu("new"));
  EXPECT_EQ(exported.actions(), first);
  EXPECT_EQ(first[2]->text(), u"new"_s);

  Menu other = menu("other");
  other.items[2].action = commands->action<"openAdmin">();
  exported.setMenu(other);
  EXPECT_EQ(visibleTitles(exported),
            (QStringList{u"State"_s, u""_s, u"other"_s, u"No command"_s, u"Quit"_s}));
  first[2]->trigger();
  EXPECT_TRUE(runMainLoopUntil([this] { return commands->performed.size() == 1; }));
  EXPECT_EQ(commands->performed, std::vector<std::string>{"copy"});

  other.items.pop_back();
  exported.setMenu(other);
  EXPECT_EQ(visibleTitles(exported), (QStringList{u"State"_s, u""_s, u"other"_s, u"No command"_s}));
  EXPECT_EQ(exported.actions().size(), 5 + 4);
  exported.setMenu({});
  EXPECT_EQ(visibleTitles(exported), QStringList());
}

TEST_F(RenderedMenu, entriesInPanelsLoseTheirKeysToo) {
  ExportedMenu exported;
  exported.setMenu(menu("ID"));
  EXPECT_EQ(exported.actions()[4]->shortcut(), QKeySequence(u"Ctrl+Q"_s));
  Menu without = menu("ID");
  without.items[4].keyEquivalent = "";
  exported.setMenu(without);
  EXPECT_TRUE(exported.actions()[4]->shortcut().isEmpty());
}

TEST_F(RenderedMenu, anItemWithoutATrayTakesWhateverItIsGiven) {
  StatusItem item(variableStatusItemLength);
  EXPECT_TRUE(item.hasButton());
  item.setButton({.title = "◆", .contentTintColor = Color::systemRed, .toolTip = "tip"});
  item.setMenu(menu("old"));
  item.setMenu(menu("new"));
  item.setMenu({});
  runMainLoop(0.05);
}

TEST_F(RenderedMenu, separatorsAreSeenOnAnyPalette) {
  const QPalette usual = QApplication::palette();
  for (const QColor& background : {QColor(Qt::white), QColor(27, 30, 32), QColor(Qt::black)}) {
    QPalette palette(background.lightness() < 128 ? QColor(49, 54, 59) : QColor(239, 239, 239),
                     background);
    palette.setColor(QPalette::Base, background);
    QApplication::setPalette(palette);
    const auto rendered = popupMenu(menu("ID"));
    const QImage picture = rendered->grab().toImage();
    const QRect separator = rendered->actionGeometry(rendered->actions()[1]);
    int contrast = 0;
    for (int y = separator.top(); y <= separator.bottom(); ++y) {
      const int lightness = picture.pixelColor(separator.center().x(), y).lightness();
      contrast = std::max(contrast, std::abs(lightness - background.lightness()));
    }
    EXPECT_GE(contrast, 25) << background.lightness();
  }
  QApplication::setPalette(usual);
}

}  // namespace
