#include "platform/qt/SymbolMasks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using platform::SymbolMasks;

constexpr const char* square =
    "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 4 4'>"
    "<path d='M0 0H2V4H0Z'/></svg>";

uchar coverage(const QImage& mask, int x, int y) {
  return mask.constScanLine(y)[x];
}

/// A drawing and what was drawn of it ahead.
class DrawnAhead : public testing::Test {
 protected:
  DrawnAhead() { writeMasks(platform::drawnAhead(drawing)); }

  void writeMasks(const QByteArray& content) { makeFile(masks, content.toStdString()); }

  const TemporaryFolder folder;
  const fs::path drawing = makeFile(folder / "a.shield.svg", square);
  const fs::path masks = folder / "a.shield.masks";
};

TEST_F(DrawnAhead, masksHaveTheSizesOfIconsAndTheShapeOfTheDrawing) {
  const SymbolMasks drawn = platform::masksOf(drawing);
  for (std::size_t i = 0; i < drawn.size(); ++i) {
    const int size = platform::iconSizes[i];
    ASSERT_EQ(drawn[i].size(), QSize(size, size));
    EXPECT_EQ(coverage(drawn[i], 0, 0), 255);
    EXPECT_EQ(coverage(drawn[i], size / 2 - 1, size - 1), 255);
    EXPECT_EQ(coverage(drawn[i], size / 2, 0), 0);
    EXPECT_EQ(coverage(drawn[i], size - 1, size - 1), 0);
  }
}

TEST_F(DrawnAhead, whatWasDrawnAheadIsTaken) {
  QByteArray content = platform::drawnAhead(drawing);
  content.back() = 77;  // the last pixel of the largest mask
  writeMasks(content);
  const QImage largest = platform::masksOf(drawing).back();
  EXPECT_EQ(coverage(largest, 63, 63), 77);
  EXPECT_EQ(coverage(largest, 0, 63), 255);
}

TEST_F(DrawnAhead, whatIsNotWholeIsNot) {
  const SymbolMasks expected = platform::drawMasks(drawing);
  QByteArray whole = platform::drawnAhead(drawing);
  whole.back() = 77;
  for (const QByteArray& content :
       {QByteArray(), whole.chopped(1), whole + '\0', whole.sliced(1)}) {
    writeMasks(content);
    EXPECT_EQ(platform::masksOf(drawing), expected) << content.size();
  }
  fs::remove(masks);
  EXPECT_EQ(platform::masksOf(drawing), expected);
}

TEST_F(DrawnAhead, aDrawingThatHasChangedIsDrawn) {
  std::string other = square;
  std::ranges::replace(other, '2', '3');  // wider, but not longer to describe
  makeFile(drawing, other);
  EXPECT_EQ(coverage(platform::masksOf(drawing).back(), 32, 0), 255);
}

TEST_F(DrawnAhead, aDrawingThatCannotBeReadIsEmpty) {
  for (const char* content : {"", "<svg", "no drawing"}) {
    makeFile(drawing, content);
    for (const QImage& mask : platform::masksOf(drawing)) {
      EXPECT_EQ(coverage(mask, 0, 0), 0) << content;
    }
  }
  fs::remove(drawing);
  fs::remove(masks);
  EXPECT_EQ(coverage(platform::masksOf(drawing).front(), 0, 0), 0);
}

}  // namespace
