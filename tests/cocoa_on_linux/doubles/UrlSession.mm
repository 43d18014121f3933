#import <Foundation/Foundation.h>

#define ZLIB_CONST
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "doubles/Doubles.h"
#include "runtime/Runtime.h"

using namespace doubles;
using runtime::violation;

namespace doubles {

std::function<Answer(const std::string& url)> answerRequest;

}  // namespace doubles

namespace {

using Clock = std::chrono::steady_clock;

std::mutex mutex;
std::condition_variable cancelled;
std::vector<Request> requested;
std::vector<std::thread> threads;
NSMutableArray* validSessions;  // what nobody invalidates is never released

// None for what is no gzip.
std::optional<std::string> unzipped(const std::string& bytes) {
  z_stream stream = {};
  stream.next_in = reinterpret_cast<const Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  constexpr int gzip = 16;
  inflateInit2(&stream, MAX_WBITS + gzip);
  std::string whole;
  int state = Z_OK;
  while (state == Z_OK) {
    Bytef part[4096];
    stream.next_out = part;
    stream.avail_out = sizeof part;
    state = inflate(&stream, Z_NO_FLUSH);
    whole.append(reinterpret_cast<const char*>(part), sizeof part - stream.avail_out);
  }
  inflateEnd(&stream);
  if (state != Z_STREAM_END) return {};
  return whole;
}

// A GET over a plain connection, as far as the loopback interface needs one.
class Fetch {
 public:
  Fetch(double idleTimeout, const std::atomic<bool>& isCancelledNow)
      : timeout(idleTimeout), isCancelled(isCancelledNow) {}

  std::optional<std::string> get(std::string url) {
    constexpr int maximumRedirects = 16;
    for (int i = 0; i < maximumRedirects; i++) {
      std::string location;
      const auto body = once(url, location);
      if (!body || location.empty()) return body;
      url = location.front() == '/' ? url.substr(0, url.find('/', 7)) + location : location;
    }
    return std::nullopt;
  }

 private:
  std::optional<std::string> once(const std::string& url, std::string& location) {
    const std::string scheme = "http://";
    const auto slash = url.find('/', scheme.size());
    const std::string host = url.substr(scheme.size(), slash - scheme.size());
    const auto answer = exchange(host, "GET " + url.substr(slash) + " HTTP/1.1\r\nHost: " + host +
                                           "\r\nAccept-Encoding: gzip, deflate\r\n"
                                           "Connection: close\r\n\r\n");
    if (!answer) return std::nullopt;
    const auto end = answer->find("\r\n\r\n");
    if (end == std::string::npos || !answer->starts_with("HTTP/1.")) return std::nullopt;
    const std::string head = answer->substr(0, end + 2);
    if (answer->size() > 9 && (*answer)[9] == '3') location = field(head, "location");
    const auto body = transferred(head, answer->substr(end + 4));
    if (!body || field(head, "content-encoding").empty()) return body;
    if (field(head, "content-encoding") != "gzip")
      violation("An encoding that is not decoded here");
    return unzipped(*body);
  }

  static std::optional<std::string> transferred(const std::string& head, const std::string& body) {
    if (field(head, "transfer-encoding") == "chunked") return withoutChunks(body);
    const std::string length = field(head, "content-length");
    if (!length.empty() && body.size() < std::stoull(length)) return std::nullopt;
    return length.empty() ? body : body.substr(0, std::stoull(length));
  }

  static std::string field(const std::string& head, const std::string& name) {
    std::string lower = head;
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
    const auto found = lower.find("\r\n" + name + ":");
    if (found == std::string::npos) return {};
    const auto start = head.find_first_not_of(' ', found + name.size() + 3);
    return head.substr(start, head.find("\r\n", start) - start);
  }

  static std::optional<std::string> withoutChunks(const std::string& body) {
    std::string whole;
    for (std::size_t position = 0;;) {
      const auto line = body.find("\r\n", position);
      if (line == std::string::npos) return std::nullopt;
      const auto size = std::stoul("0" + body.substr(position, line - position), nullptr, 16);
      if (size == 0) return whole;
      if (body.size() < line + 2 + size + 2) return std::nullopt;
      whole += body.substr(line + 2, size);
      position = line + 2 + size + 2;
    }
  }

  std::optional<std::string> exchange(const std::string& host, const std::string& text) {
    const auto colon = host.find(':');
    const unsigned long port = colon == std::string::npos ? 80 : std::stoul(host.substr(colon + 1));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (port > 65535 || inet_pton(AF_INET, host.substr(0, colon).c_str(), &address.sin_addr) != 1)
      return std::nullopt;
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::optional<std::string> received;
    if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        send(connection, text.data(), text.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(text.size()))
      received = receive(connection);
    close(connection);
    return received;
  }

  // To the end, or none if it is idle for too long.
  std::optional<std::string> receive(int connection) {
    std::string all;
    auto last = Clock::now();
    while (!isCancelled && std::chrono::duration<double>(Clock::now() - last).count() < timeout) {
      pollfd waiting = {connection, POLLIN, 0};
      if (poll(&waiting, 1, 10) == 0) continue;
      char buffer[4096];
      const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
      if (count == 0) return all;
      if (count < 0) return std::nullopt;
      all.append(buffer, static_cast<std::size_t>(count));
      last = Clock::now();
    }
    return std::nullopt;
  }

  double timeout;
  const std::atomic<bool>& isCancelled;
};

}  // namespace

@implementation NSURLSessionConfiguration {
 @public
  BOOL isEphemeral;
}

+ (NSURLSessionConfiguration*)ephemeralSessionConfiguration {
  NSURLSessionConfiguration* made = [[self alloc] init];
  made->isEphemeral = YES;
  made.timeoutIntervalForRequest = 60;
  return made;
}

- (id)copyWithZone:(NSZone*)zone {
  NSURLSessionConfiguration* made = [[NSURLSessionConfiguration alloc] init];
  made->isEphemeral = isEphemeral;
  made.timeoutIntervalForRequest = self.timeoutIntervalForRequest;
  return made;
}

@end

using Handler = void (^)(NSData*, NSURLResponse*, NSError*);

@interface NSURLSessionTask () {
 @public
  NSURLSession* session;
  NSURL* url;
  Handler handler;
  std::atomic<bool> isCancelled;
  BOOL isResumed;
}
- (void)fetch;
@end

@interface NSURLSession () {
 @public
  std::vector<NSURLSessionTask*> running;
  BOOL isInvalid;
}
@end

@implementation NSURLSessionTask

- (void)resume {
  if (isResumed) return;
  isResumed = YES;
  {
    const std::lock_guard lock(mutex);
    requested.push_back(
        {url.absoluteString.UTF8String, session.configuration.timeoutIntervalForRequest});
    session->running.push_back(self);
  }
  std::thread thread([self] {
    @autoreleasepool {
      [self fetch];
    }
  });
  const std::lock_guard lock(mutex);
  threads.push_back(std::move(thread));
}

- (void)cancel {
  isCancelled = true;
  cancelled.notify_all();
}

// On a thread of its own; the handlers of a session run one after another.
- (void)fetch {
  static std::mutex& queue = *new std::mutex;
  std::optional<std::string> body;
  if (answerRequest) {
    const Answer answer = answerRequest(url.absoluteString.UTF8String);
    std::unique_lock lock(mutex);
    cancelled.wait_for(lock, std::chrono::duration<double>(answer.delay),
                       [self] { return isCancelled.load(); });
    body = answer.body;
  } else {
    body = Fetch(session.configuration.timeoutIntervalForRequest, isCancelled)
               .get(url.absoluteString.UTF8String);
  }
  if (isCancelled) body.reset();
  {
    const std::lock_guard lock(queue);
    NSData* data = body ? [NSData dataWithBytes:body->data() length:body->size()] : nil;
    NSError* error = body ? nil
                          : [NSError errorWithDomain:@"NSURLErrorDomain"
                                                code:isCancelled ? -999 : -1004
                                            userInfo:@{}];
    handler(data, nil, error);
    handler = nil;
  }
  const std::lock_guard lock(mutex);
  std::erase(session->running, self);
  session = nil;
}

@end

@implementation NSURLSessionDataTask
@end

@implementation NSURLSession {
  NSURLSessionConfiguration* itsConfiguration;
}

+ (NSURLSession*)sessionWithConfiguration:(NSURLSessionConfiguration*)configuration {
  expect(configuration, NSURLSessionConfiguration.class);
  if (!configuration->isEphemeral) violation("A session that keeps what it learns");
  NSURLSession* made = [[self alloc] init];
  made->itsConfiguration = [configuration copy];
  const std::lock_guard lock(mutex);
  if (validSessions == nil) validSessions = [NSMutableArray array];
  [validSessions addObject:made];
  return made;
}

- (NSURLSessionConfiguration*)configuration {
  return itsConfiguration;
}

- (NSURLSessionDataTask*)dataTaskWithURL:(NSURL*)url completionHandler:(Handler)completionHandler {
  expect(url, NSURL.class);
  if (completionHandler == nil) raise(NSInvalidArgumentException, @"A task needs a handler");
  if (isInvalid) raise(NSGenericException, @"Task created in a session that has been invalidated");
  NSURLSessionDataTask* made = [[NSURLSessionDataTask alloc] init];
  made->session = self;
  made->url = [url copy];
  made->handler = completionHandler;
  return made;
}

- (void)invalidateAndCancel {
  std::vector<NSURLSessionTask*> cancelledNow;
  {
    const std::lock_guard lock(mutex);
    isInvalid = YES;
    cancelledNow = running;
  }
  for (NSURLSessionTask* task : cancelledNow) [task cancel];
  const std::lock_guard lock(mutex);
  [validSessions removeObjectIdenticalTo:self];
}

@end

namespace doubles {

std::vector<Request> requests() {
  const std::lock_guard lock(mutex);
  return requested;
}

void waitForRequests() {
  std::vector<std::thread> ended;
  {
    const std::lock_guard lock(mutex);
    ended.swap(threads);
  }
  for (auto& thread : ended) thread.join();
}

void resetRequests() {
  for (NSURLSession* each in [validSessions copy]) [each invalidateAndCancel];
  waitForRequests();
  answerRequest = nullptr;
  requested.clear();
}

}  // namespace doubles
