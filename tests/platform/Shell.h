#pragma once

#include <string>
#include <vector>

#include "platform/Task.h"

/// What a shell script prints on its standard output.
inline std::string outputOf(const std::string& script,
                            const std::vector<std::string>& arguments = {}) {
  std::vector<std::string> all = {"-c", script, "sh"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  platform::Task task("/bin/sh", all, platform::Task::Output::captured);
  task.launch();
  task.waitUntilExit();
  return task.readStandardOutputToEnd();
}
