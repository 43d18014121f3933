#include "platform/Task.h"

#include <QProcess>
#include <algorithm>
#include <utility>

#include "platform/Error.h"
#include "platform/qt/Conversions.h"
#include "platform/qt/OwnEnvironment.h"

namespace platform {

/// Captured output is read while the application waits, so that no child waits for its reader. Whom
/// a child passed its output on to is not waited for. A process that nobody waited for is killed.
struct Task::Implementation {
  /// Whatever a child prints must not take all memory; what is beyond this is lost.
  static constexpr std::size_t longestOutput = 16U << 20U;

  void read() {
    const QByteArray bytes = process.readAllStandardOutput();
    const auto count = static_cast<std::size_t>(bytes.size());
    output.append(bytes.data(), std::min(count, longestOutput - output.size()));
  }

  std::string output;
  QProcess process;
};

Task::Task(const std::filesystem::path& executableUrl, const std::vector<std::string>& arguments,
           Output output)
    : implementation(std::make_unique<Implementation>()) {
  QProcess& process = implementation->process;
  QStringList texts;
  for (const std::string& argument : arguments) texts.append(toQString(argument));
  process.setProgram(toQString(std::filesystem::absolute(executableUrl).native()));
  process.setArguments(texts);
  process.setProcessEnvironment(OwnEnvironment::forChildren());
  process.setInputChannelMode(QProcess::ForwardedInputChannel);
  if (output == Output::inherited) {
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    return;
  }
  process.setStandardErrorFile(QProcess::nullDevice());
  QObject::connect(&process, &QProcess::readyReadStandardOutput,
                   [task = implementation.get()] { task->read(); });
}

Task::~Task() = default;

void Task::launch() {
  QProcess& process = implementation->process;
  process.start();
  if (process.waitForStarted(-1)) return;
  throw Error("QProcess", process.error(), fromQString(process.errorString()) + ".");
}

void Task::waitUntilExit() {
  implementation->process.waitForFinished(-1);
}

std::string Task::readStandardOutputToEnd() {
  return std::exchange(implementation->output, {});
}

}  // namespace platform
