#include "platform/UrlSession.h"

#include <malloc.h>

#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QThread>
#include <QTimer>
#include <QUrl>
#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/qt/BlockQueue.h"
#include "platform/qt/Conversions.h"

namespace platform {
namespace {

constexpr int maximumRedirects = 20;

/// An answer that never ends must not take all memory.
constexpr std::size_t longestBody = 256U << 20U;

/// Whether `url` can be fetched without looking a name up and without leaving this machine.
bool isOnThisMachine(const QUrl& url) {
  return url.scheme() == u"http" && QHostAddress(url.host()).isLoopback();
}

int statusOf(const QNetworkReply& reply) {
  return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

/// Whether an answer came whole. QNetworkReply reports an unwelcome status as an error too, in
/// ranges of their own; 400 and 407 have other ones.
bool isAnswer(const QNetworkReply& reply) {
  using enum QNetworkReply::NetworkError;
  const int status = statusOf(reply);
  const QNetworkReply::NetworkError error = reply.error();
  if (error == NoError) return status != 0;
  if (status < 400) return false;
  return (error >= ContentAccessDenied && error <= UnknownContentError) ||
         (error >= InternalServerError && error <= UnknownServerError) ||
         error == ProtocolInvalidOperationError ||
         (status == 407 && error == ProxyAuthenticationRequiredError);
}

/// Whether less of the body arrived than the answer promised. Only needed for an unwelcome status,
/// which QNetworkReply may report in place of the failure that came after it.
bool isCutShort(const QNetworkReply& reply, std::size_t size) {
  return !reply.hasRawHeader("Content-Encoding") &&
         reply.header(QNetworkRequest::ContentLengthHeader).toLongLong() >
             static_cast<qint64>(size);
}

/// Where an answer sends the client instead, if it does.
std::optional<QUrl> redirectOf(const QNetworkReply& reply) {
  switch (statusOf(reply)) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
      break;
    default:
      return {};
  }
  if (!reply.hasRawHeader("Location")) return {};
  return reply.url().resolved(QUrl::fromEncoded(reply.rawHeader("Location")));
}

}  // namespace

struct UrlSession::Implementation {
  struct Request {
    CompletionHandler completionHandler;
    int redirects = 0;
    std::string body = {};
  };

  explicit Implementation(double timeout) : timeoutInMilliseconds(toMilliseconds(timeout)) {
    // As it is by default, but fixed: else it grows with the largest answer ever freed, and the
    // process keeps up to 64 MiB.
    ::mallopt(M_TRIM_THRESHOLD, 128 * 1024);
    queue.moveToThread(&thread);
  }

  ~Implementation() {
    if (!thread.isRunning()) return;
    queue.post([this] {
      endAll();
      thread.quit();
    });
    thread.wait();
  }

  // All that follows runs on the session's thread.

  void start(const QUrl& url, Request request) {
    if (!manager) {
      manager = std::make_unique<QNetworkAccessManager>();
      manager->setProxy(QNetworkProxy::NoProxy);
    }
    QNetworkRequest get(url);
    get.setTransferTimeout(timeoutInMilliseconds);
    get.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                     QNetworkRequest::ManualRedirectPolicy);
    get.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // Nothing of one answer is kept for the next.
    for (const auto attribute :
         {QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::CookieSaveControlAttribute,
          QNetworkRequest::AuthenticationReuseAttribute}) {
      get.setAttribute(attribute, QNetworkRequest::Manual);
    }
    QNetworkReply* const reply = manager->get(get);
    requests.emplace(reply, std::move(request));
    QObject::connect(reply, &QNetworkReply::readyRead, [this, reply] { readAvailable(*reply); });
    QObject::connect(reply, &QNetworkReply::finished, [this, reply] { finish(*reply); });
  }

  void readAvailable(QNetworkReply& reply) {
    std::string& body = requests.at(&reply).body;
    const std::size_t size = body.size();
    const qint64 available = reply.bytesAvailable();
    if (available <= 0) return;
    body.resize(size + static_cast<std::size_t>(available));
    const qint64 count = reply.read(body.data() + size, available);
    body.resize(size + static_cast<std::size_t>(std::max<qint64>(count, 0)));
    if (body.size() > longestBody) reply.abort();
  }

  void finish(QNetworkReply& reply) {
    readAvailable(reply);
    Request request = std::move(requests.extract(&reply).mapped());
    reply.deleteLater();
    if (!isAnswer(reply) || isCutShort(reply, request.body.size()) ||
        request.body.size() > longestBody) {
      request.completionHandler({});
    } else if (const auto target = redirectOf(reply)) {
      if (request.redirects < maximumRedirects && isOnThisMachine(*target)) {
        start(*target, {std::move(request.completionHandler), request.redirects + 1});
      } else {
        request.completionHandler({});
      }
    } else {
      const bool isLarge = request.body.size() > 1U << 20U;
      request.completionHandler(std::move(request.body));
      // Or its many small pieces stay with the process. Qt's own thread lets go of them a little
      // later.
      if (isLarge) QTimer::singleShot(1000, &queue, [] { ::malloc_trim(0); });
    }
  }

  void endAll() {
    for (auto& [reply, request] : std::exchange(requests, {})) {
      reply->disconnect();
      request.completionHandler({});
    }
    manager.reset();  // and its replies with it
  }

  const int timeoutInMilliseconds;
  std::once_flag started;
  QThread thread;    ///< started by the first request
  BlockQueue queue;  ///< lives on `thread`
  std::unique_ptr<QNetworkAccessManager> manager;
  std::unordered_map<QNetworkReply*, Request> requests;
};

UrlSession::UrlSession(double timeoutIntervalForRequest)
    : implementation(std::make_unique<Implementation>(timeoutIntervalForRequest)) {}

UrlSession::~UrlSession() = default;

void UrlSession::dataTaskWithUrl(const Url& url, CompletionHandler completionHandler) {
  Implementation& session = *implementation;
  std::call_once(session.started, [&session] { session.thread.start(); });
  session.queue.post([&session, target = QUrl(toQString(url.absoluteString())),
                      handler = std::move(completionHandler)]() mutable {
    session.start(target, {std::move(handler)});
  });
}

}  // namespace platform
