// The fuzzer's stand-in for compilers that have none: checks every file of the folders in the
// arguments once.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator(file), {}};
      std::fprintf(stderr, "%s\n", entry.path().c_str());
      fuzz::checkInput(input);
      ++count;
    }
  }
  std::fprintf(stderr, "%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
