// Run by the build: draws the symbol in the file of the first argument ahead, into that of the
// second.

#include <QSvgRenderer>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "platform/qt/SymbolMasks.h"

int main(int argc, char** argv) {
  if (argc != 3 || !QSvgRenderer(QString::fromLocal8Bit(argv[1])).isValid()) {
    std::fputs("usage: draw_symbol DRAWING.svg MASKS\n", stderr);
    return EXIT_FAILURE;
  }
  std::ofstream file(argv[2], std::ios::binary);
  file << platform::drawnAhead(argv[1]).toStdString();
  file.close();
  return file ? EXIT_SUCCESS : EXIT_FAILURE;
}
