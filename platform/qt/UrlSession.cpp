#include "platform/UrlSession.h"

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <QByteArray>
#include <QUrl>
#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/qt/Conversions.h"
#include "platform/qt/HttpResponse.h"

namespace platform {
namespace {

constexpr int maximumRedirects = 20;

/// At a time; what is beyond fails. Else a service whose answers never end would take one more with
/// each poll.
constexpr std::size_t maximumConnections = 64;

/// The address that `url` leads to, if it is this machine's own. Names are never looked up.
std::optional<sockaddr_in> loopbackAddress(const QUrl& url) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(url.port(80)));
  const bool isAddress = ::inet_pton(AF_INET, qPrintable(url.host()), &address.sin_addr) == 1;
  const bool isLoopback = ntohl(address.sin_addr.s_addr) >> 24U == IN_LOOPBACKNET;
  if (url.scheme() != u"http" || !isAddress || !isLoopback) return {};
  return address;
}

std::string requestFor(const QUrl& url) {
  const QByteArray target =
      url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
  const std::string host = fromQString(url.host());
  const std::string port = url.port() < 0 ? "" : ":" + std::to_string(url.port());
  return std::string("GET ") + (target.startsWith('/') ? "" : "/") + target.toStdString() +
         " HTTP/1.1\r\n"
         "Host: " +
         host + port +
         "\r\n"
         "Accept-Encoding: identity\r\n"
         "Connection: close\r\n"
         "\r\n";
}

/// Where an answer sends the client instead, if it does.
std::optional<QUrl> redirectOf(const HttpResponse& response, const QUrl& url) {
  switch (response.status) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
      break;
    default:
      return {};
  }
  if (!response.location) return {};
  return url.resolved(QUrl::fromEncoded(QByteArray::fromStdString(*response.location)));
}

}  // namespace

struct UrlSession::Implementation {
  explicit Implementation(double timeoutIntervalForRequest)
      : timeout(std::max(toMilliseconds(timeoutIntervalForRequest), 1)) {}

  ~Implementation() {
    using namespace std::chrono_literals;
    std::unique_lock lock(mutex);
    isEnding = true;
    do {  // again, because it does nothing to one that is about to connect
      for (const int socket : sockets) ::shutdown(socket, SHUT_RDWR);
    } while (!ended.wait_for(lock, 10ms, [this] { return requests == 0; }));
  }

  void start(QUrl url, CompletionHandler completionHandler) {
    {
      const std::lock_guard lock(mutex);
      ++requests;
    }
    const auto handler = std::make_shared<CompletionHandler>(std::move(completionHandler));
    try {
      std::thread([this, url = std::move(url), handler] {
        perform(url, std::exchange(*handler, nullptr));
      }).detach();
    } catch (const std::system_error&) {  // the system has no thread to give
      std::exchange(*handler, nullptr)({});
      end();
    }
  }

  // All that follows runs on a request's own thread.

  void perform(const QUrl& url, CompletionHandler handler) {
    // Calls with a time-out are interrupted by any signal.
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);

    std::optional<std::string> body = bodyOf(url);
    const bool isLarge = body && body->size() > 1U << 20U;
    {
      const std::lock_guard lock(handlerMutex);
      std::exchange(handler, nullptr)(std::move(body));
    }
    if (isLarge) ::malloc_trim(0);  // or what it was read into stays with the process
    end();
  }

  std::optional<std::string> bodyOf(QUrl url) {
    for (int redirects = 0; redirects <= maximumRedirects; ++redirects) {
      HttpResponse response;
      if (!get(url, response)) return {};
      const auto target = redirectOf(response, url);
      if (!target) return std::move(response.body);
      url = *target;
    }
    return {};
  }

  /// Whether a whole answer came.
  bool get(const QUrl& url, HttpResponse& response) {
    const auto address = loopbackAddress(url);
    if (!address) return false;
    const int socket = open();
    const bool isWhole = socket != -1 && exchange(socket, *address, requestFor(url), response);
    close(socket);
    return isWhole;
  }

  bool exchange(int socket, const sockaddr_in& address, std::string_view request,
                HttpResponse& response) const {
    const timeval patience{timeout / 1000, 1000L * (timeout % 1000)};
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
      ::setsockopt(socket, SOL_SOCKET, option, &patience, sizeof patience);
    }
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      return false;
    }
    while (!request.empty()) {
      const ssize_t size = ::send(socket, request.data(), request.size(), MSG_NOSIGNAL);
      if (size < 0) return false;
      request.remove_prefix(static_cast<std::size_t>(size));
    }
    std::array<char, 32768> bytes;
    for (;;) {
      const ssize_t size = ::recv(socket, bytes.data(), bytes.size(), 0);
      if (size < 0) return false;
      const auto progress = size == 0
                                ? response.end()
                                : response.take({bytes.data(), static_cast<std::size_t>(size)});
      if (progress != HttpResponse::Progress::incomplete) {
        return progress == HttpResponse::Progress::complete;
      }
    }
  }

  /// A socket that the session can shut down, or -1.
  int open() {
    const std::lock_guard lock(mutex);
    if (isEnding || sockets.size() >= maximumConnections) return -1;
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket != -1) sockets.insert(socket);
    return socket;
  }

  void close(int socket) {
    if (socket == -1) return;
    const std::lock_guard lock(mutex);
    sockets.erase(socket);
    ::close(socket);
  }

  /// The last that a request does: the session may be gone afterwards.
  void end() {
    const std::lock_guard lock(mutex);
    --requests;
    ended.notify_all();
  }

  const int timeout;  ///< in milliseconds
  std::mutex handlerMutex;
  std::mutex mutex;  ///< of all that follows
  std::condition_variable ended;
  int requests = 0;
  std::set<int> sockets;
  bool isEnding = false;
};

UrlSession::UrlSession(double timeoutIntervalForRequest)
    : implementation(std::make_unique<Implementation>(timeoutIntervalForRequest)) {}

UrlSession::~UrlSession() = default;

void UrlSession::dataTaskWithUrl(const Url& url, CompletionHandler completionHandler) {
  implementation->start(QUrl(toQString(url.absoluteString())), std::move(completionHandler));
}

}  // namespace platform
