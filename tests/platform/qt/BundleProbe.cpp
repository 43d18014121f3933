#include <iostream>
#include <string>

#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/Launchd.h"

/// Prints what a program takes for its bundle, after a line has come in.
int main() {
  const platform::Application application;
  std::string line;
  std::getline(std::cin, line);
  const auto print = [](const auto& path) {
    std::cout << (path ? path->native() : "none") << '\n';
  };
  print(platform::Bundle::executableUrl());
  print(platform::Bundle::urlForResource("velmor-guard"));
  std::cout << platform::Launchd::launchctl().native() << '\n';
}
