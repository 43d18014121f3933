#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/Launchd.h"

/// Prints what a program takes for its bundle, after it was removed or replaced, if its argument
/// says so.
int main(int argc, char** argv) {
  const platform::Application application;
  const std::string_view change = argc > 1 ? argv[1] : "";
  if (!change.empty()) std::filesystem::remove(argv[0]);
  if (change == "replace") std::ofstream(argv[0]).put('x');

  const auto print = [](const auto& path) {
    std::cout << (path ? path->native() : "none") << '\n';
  };
  print(platform::Bundle::executableUrl());
  print(platform::Bundle::urlForResource("velmor-guard"));
  std::cout << platform::Launchd::launchctl().native() << '\n';
}
