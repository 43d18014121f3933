#include "platform/Workspace.h"

#include <QProcess>

#include "platform/qt/Conversions.h"
#include "platform/qt/OwnEnvironment.h"

using namespace Qt::StringLiterals;

namespace platform::Workspace {

void openUrl(const Url& url) {
  QProcess opener;
  opener.setProgram(u"xdg-open"_s);
  opener.setArguments({toQString(url.absoluteString())});
  opener.setProcessEnvironment(OwnEnvironment::forChildren());
  // What the browser prints is not this program's output.
  opener.setStandardInputFile(QProcess::nullDevice());
  opener.setStandardOutputFile(QProcess::nullDevice());
  opener.setStandardErrorFile(QProcess::nullDevice());
  opener.startDetached();
}

}  // namespace platform::Workspace
