#include "platform/Pasteboard.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <string>

namespace {

using namespace platform;

TEST(Pasteboard, holdsExactlyTheText) {
  for (const std::string& text :
       {std::string("—"), std::string(" R&D_lab\n\t<b>x</b> "), std::string("שלום\u200f 😀"),
        std::string(100'000, 'x'), std::string()}) {
    GeneralPasteboard::clearContents();
    GeneralPasteboard::setString(text);
    EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), text);
  }
}

TEST(Pasteboard, losesWhatItHeldOfOtherTypes) {
  auto* data = new QMimeData;
  data->setHtml(QStringLiteral("<b>old</b>"));
  QGuiApplication::clipboard()->setMimeData(data);
  GeneralPasteboard::clearContents();
  GeneralPasteboard::setString("new");
  EXPECT_FALSE(QGuiApplication::clipboard()->mimeData()->hasHtml());
  EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("new"));
}

TEST(Pasteboard, isEmptyOnceCleared) {
  GeneralPasteboard::setString("text");
  GeneralPasteboard::clearContents();
  EXPECT_EQ(QGuiApplication::clipboard()->text(), QString());
}

}  // namespace
