#include "platform/Task.h"

#include <QProcess>
#include <utility>

#include "platform/Error.h"
#include "platform/qt/Conversions.h"

namespace platform {

struct Task::Implementation {
  QProcess process;
};

Task::Task(const std::filesystem::path& executableUrl, const std::vector<std::string>& arguments,
           Output output)
    : implementation(std::make_unique<Implementation>()) {
  QProcess& process = implementation->process;
  // Absolute, so that a bare name is never looked for in $PATH.
  process.setProgram(toQString(std::filesystem::absolute(executableUrl).native()));
  QStringList list;
  for (const std::string& argument : arguments) list.append(toQString(argument));
  process.setArguments(list);
  process.setInputChannelMode(QProcess::ForwardedInputChannel);
  if (output == Output::captured) {
    // Nobody reads it, so that it needs no memory either; and no child has to wait for a reader.
    process.setStandardErrorFile(QProcess::nullDevice());
  } else {
    process.setProcessChannelMode(QProcess::ForwardedChannels);
  }
}

/// QProcess kills a child that nobody waited for.
Task::~Task() = default;

void Task::launch() {
  QProcess& process = implementation->process;
  process.start();
  if (process.waitForStarted(-1)) return;
  throw Error("QProcess", process.error(),
              "The program “" + fromQString(process.program()) +
                  "” couldn’t be started: " + fromQString(process.errorString()) + ".");
}

void Task::waitUntilExit() {
  QProcess& process = implementation->process;
  if (process.state() != QProcess::NotRunning) process.waitForFinished(-1);
}

std::string Task::readStandardOutputToEnd() {
  return implementation->process.readAllStandardOutput().toStdString();
}

}  // namespace platform
