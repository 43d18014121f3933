// children TOOL GUARD ROUNDS: how long a launch waits for its child processes, run as the
// application runs them and from a process of its kind. Prints, one round per line, the
// microseconds of bootout, bootstrap, kickstart and id.

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "platform/Application.h"
#include "platform/Task.h"

namespace {

using Output = platform::Task::Output;

double microsecondsOf(const char* program, const std::vector<std::string>& arguments,
                      Output output) {
  const auto start = std::chrono::steady_clock::now();
  platform::Task task(program, arguments, output);
  task.launch();
  task.waitUntilExit();
  if (output == Output::captured && task.readStandardOutputToEnd().empty()) std::exit(1);
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 64;
  const platform::Application application;
  for (int round = 0; round < std::atoi(argv[3]); ++round) {
    for (const auto* const command : {"bootout", "bootstrap", "kickstart"})
      std::cout << microsecondsOf(argv[1], {command, "gui/0/x"}, Output::inherited) << ' ';
    std::cout << microsecondsOf(argv[2], {"id", "--json"}, Output::captured) << '\n';
  }
}
