#include "platform/UrlSession.h"

#include <malloc.h>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QThread>
#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "platform/qt/Conversions.h"

namespace platform {
namespace {

constexpr std::size_t longestBody = 16U << 20U;
constexpr qint64 longestUnread = qint64{1} << 20U;  ///< before decoding
constexpr int maximumRedirects = 20;

/// One call of `dataTaskWithUrl`, redirects and all.
struct DataTask {
  UrlSession::CompletionHandler completionHandler;
  std::string body = {};
  int redirects = 0;
};

/// Qt makes an error of an HTTP status too, and may then conceal that of the transport, whose
/// number is smaller. It takes away the length of what it decodes, and cannot always tell whether
/// the last chunk came.
bool isWhole(const QNetworkReply& reply, const std::string& body) {
  const auto error = reply.error();
  const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
  const bool isOfStatus = status >= 400 && error > QNetworkReply::ProxyConnectionRefusedError;
  if (error != QNetworkReply::NoError && !isOfStatus) return false;
  const QVariant length = reply.header(QNetworkRequest::ContentLengthHeader);
  return !length.isValid() || length.toULongLong() == body.size();
}

bool haveSameOrigin(const QUrl& a, const QUrl& b) {
  return a.scheme() == b.scheme() && a.host() == b.host() && a.port(80) == b.port(80);
}

}  // namespace

/// The manager works on `thread`, where everything but the constructor, the destructor and
/// `resume` runs.
struct UrlSession::Implementation {
  explicit Implementation(double timeoutIntervalForRequest)
      : timeout(toMilliseconds(timeoutIntervalForRequest)) {
    manager.setAutoDeleteReplies(true);
    manager.setProxy(QNetworkProxy::NoProxy);
    manager.moveToThread(&thread);
  }

  ~Implementation() {
    QMetaObject::invokeMethod(&manager, [this] {
      isEnding = true;
      for (auto* const reply : manager.findChildren<QNetworkReply*>()) reply->abort();
      if (unfinished == 0) thread.quit();
    });
    thread.wait();
  }

  void resume(const QUrl& url, const std::shared_ptr<DataTask>& task) {
    ++unfinished;
    thread.start();
    if (thread.isRunning()) {
      QMetaObject::invokeMethod(&manager, [=, this] { get(url, task); });
    } else {  // the system has no thread to give
      finish(*task, {});
    }
  }

  void get(const QUrl& url, const std::shared_ptr<DataTask>& task) {
    if (isEnding) return finish(*task, {});
    QNetworkRequest request(url);
    request.setTransferTimeout(timeout);
    request.setDecompressedSafetyCheckThreshold(-1);  // `longestBody` is for all bodies
    using Request = QNetworkRequest;
    request.setAttribute(Request::RedirectPolicyAttribute, Request::ManualRedirectPolicy);
    request.setAttribute(Request::Http2AllowedAttribute, false);
    request.setAttribute(Request::CookieLoadControlAttribute, Request::Manual);
    request.setAttribute(Request::CookieSaveControlAttribute, Request::Manual);
    request.setAttribute(Request::AuthenticationReuseAttribute, Request::Manual);
    auto* const reply = manager.get(request);
    reply->setReadBufferSize(longestUnread);
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [=] { read(*reply, *task); });
    QObject::connect(reply, &QNetworkReply::finished, reply, [=, this] { end(*reply, task); });
    QObject::connect(reply, &QNetworkReply::socketStartedConnecting, reply,
                     [this] { hasConnected = true; });
  }

  static void read(QNetworkReply& reply, DataTask& task) {
    try {
      std::array<char, 65536> bytes;
      while (task.body.size() <= longestBody) {
        const qint64 count = reply.read(bytes.data(), bytes.size());
        if (count <= 0) return;
        task.body.append(bytes.data(), static_cast<std::size_t>(count));
      }
    } catch (const std::bad_alloc&) {
    }
    reply.abort();
  }

  void end(QNetworkReply& reply, const std::shared_ptr<DataTask>& task) {
    if (!isWhole(reply, task->body)) {
      // Where Qt's own thread could not be started, it would not be tried again.
      if (!hasConnected && unfinished == 1) manager.clearConnectionCache();
      return finish(*task, {});
    }
    const QUrl target = reply.attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl();
    if (target.isEmpty()) return finish(*task, std::move(task->body));
    const QUrl url = reply.url().resolved(target);
    if (!haveSameOrigin(url, reply.url()) || ++task->redirects > maximumRedirects) {
      return finish(*task, {});
    }
    task->body.clear();
    get(url, task);
  }

  void finish(DataTask& task, std::optional<std::string> body) {
    const bool isLarge = body && body->size() > longestBody / 16;
    std::exchange(task.completionHandler, nullptr)(std::move(body));
    // What reading it took is free, but in small pieces: 177 MiB of them stayed after 4 MiB of
    // nested objects, and 54 after this.
    if (isLarge) ::malloc_trim(0);
    if (--unfinished == 0 && isEnding) thread.quit();
  }

  const int timeout;
  QThread thread;
  QNetworkAccessManager manager;
  std::atomic<int> unfinished = 0;  ///< calls of `dataTaskWithUrl`
  bool hasConnected = false;        ///< so Qt's own thread is there, if busy at times
  bool isEnding = false;
};

UrlSession::UrlSession(double timeoutIntervalForRequest)
    : implementation(std::make_unique<Implementation>(timeoutIntervalForRequest)) {}

UrlSession::~UrlSession() = default;

void UrlSession::dataTaskWithUrl(const Url& url, CompletionHandler completionHandler) {
  implementation->resume(QUrl(toQString(url.absoluteString())),
                         std::make_shared<DataTask>(DataTask{std::move(completionHandler)}));
}

}  // namespace platform
