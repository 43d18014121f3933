#include "platform/UrlSession.h"

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QByteArray>
#include <QUrl>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
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

/// At a time; what is beyond waits for one. Else a service whose answers never end would take one
/// more with each poll.
constexpr std::size_t maximumConnections = 6;

using Clock = std::chrono::steady_clock;

/// Whether `socket` became ready before `deadline`.
bool wait(int socket, short events, Clock::time_point deadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    pollfd waited{socket, events, 0};
    const int count = ::poll(&waited, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

/// Whether a call on a socket that never waits may be tried again.
bool isTemporary(ssize_t result) {
  return result < 0 && (errno == EAGAIN || errno == EINTR);
}

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
      : timeout(toMilliseconds(timeoutIntervalForRequest)) {}

  ~Implementation() {
    std::unique_lock lock(mutex);
    isEnding = true;
    freed.notify_all();
    for (const int socket : sockets) ::shutdown(socket, SHUT_RDWR);
    ended.wait(lock, [this] { return requests == 0; });
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
    const auto deadline = Clock::now() + timeout;
    const auto address = loopbackAddress(url);
    if (!address) return false;
    const int socket = connect(*address, deadline);
    if (socket == -1) return false;
    const bool isWhole = exchange(socket, requestFor(url), response, deadline);
    return close(socket) && isWhole;
  }

  /// A socket that is connected or about to be, or -1.
  int connect(const sockaddr_in& address, Clock::time_point deadline) {
    std::unique_lock lock(mutex);
    const bool isFree = freed.wait_until(
        lock, deadline, [this] { return isEnding || sockets.size() < maximumConnections; });
    if (!isFree || isEnding) return -1;
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket == -1) return -1;
    const auto* const peer = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(socket, peer, sizeof address) != 0 && errno != EINPROGRESS) {
      ::close(socket);
      return -1;
    }
    sockets.insert(socket);
    return socket;
  }

  bool exchange(int socket, std::string_view request, HttpResponse& response,
                Clock::time_point deadline) const {
    while (!request.empty()) {
      if (!wait(socket, POLLOUT, deadline)) return false;
      const ssize_t size = ::send(socket, request.data(), request.size(), MSG_NOSIGNAL);
      if (isTemporary(size)) continue;
      if (size < 0) return false;  // also if it could not be connected
      request.remove_prefix(static_cast<std::size_t>(size));
    }
    std::array<char, 32768> bytes;
    for (;;) {
      if (!wait(socket, POLLIN, deadline)) return false;
      const ssize_t size = ::recv(socket, bytes.data(), bytes.size(), 0);
      if (isTemporary(size)) continue;
      if (size < 0) return false;
      const auto progress = size == 0
                                ? response.end()
                                : response.take({bytes.data(), static_cast<std::size_t>(size)});
      if (progress != HttpResponse::Progress::incomplete) {
        return progress == HttpResponse::Progress::complete;
      }
      deadline = Clock::now() + timeout;
    }
  }

  /// Whether nothing but the other side ended the connection: the end of the session would pass for
  /// that of a body.
  bool close(int socket) {
    const std::lock_guard lock(mutex);
    sockets.erase(socket);
    ::close(socket);
    freed.notify_one();
    return !isEnding;
  }

  /// The last that a request does: the session may be gone afterwards.
  void end() {
    const std::lock_guard lock(mutex);
    --requests;
    ended.notify_all();
  }

  const std::chrono::milliseconds timeout;
  std::mutex handlerMutex;
  std::mutex mutex;               ///< of all that follows
  std::condition_variable freed;  ///< a connection
  std::condition_variable ended;  ///< a request
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
