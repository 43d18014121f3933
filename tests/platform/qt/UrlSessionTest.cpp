#include "platform/UrlSession.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Fetch.h"
#include "HttpServer.h"

namespace {

using namespace std::chrono_literals;
using platform::UrlSession;
using Connection = HttpServer::Connection;

const std::optional<std::string> none;
bool hasToolkitLeaked = false;

long countIn(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST(UrlSession, redirectsToAnotherOriginGiveNothing) {
  for (const char* location :
       {"http://example.invalid/", "http://localhost/", "http://192.0.2.1/", "https://127.0.0.1/",
        "//192.0.2.1/status.json", "ftp://127.0.0.1/", "file:///etc/hostname",
        "data:text/plain,hello", "javascript:0", "http://127.0.0.1.example.invalid/",
        "http://user@192.0.2.1:80@127.0.0.2/", "http://[fe80::1]/", "http://0.0.0.0/", ":",
        "http://127.0.0.1:99999/", "http://127.0.0.1/", "\xff\xfe"}) {
    HttpServer server([&](Connection& connection) {
      connection.send(response("302 Found", "{}", "Location: " + std::string(location) + "\r\n"));
    });
    UrlSession session(5);
    const auto body = fetch(session, server.url());
    EXPECT_EQ(body, none) << location;
  }
}

TEST(UrlSession, whatIsNotHttpGivesNothing) {
  for (const std::string& bytes :
       {std::string("HTTP/1.1 200 OK\r\nCont"), std::string("SSH-2.0-OpenSSH\r\n"),
        std::string(100'000, 'x'), std::string(1000, '\0'),
        std::string("{\"state\":\"authorized\"}"), std::string("HTTP/1.1\r\n\r\n"),
        std::string("HTTP/1.1 abc OK\r\n\r\n{}")}) {
    HttpServer server([&](Connection& connection) { connection.send(bytes); });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), none) << bytes.substr(0, 100);
  }
}

TEST(UrlSession, compressedDataThatStopsEarlyGivesWhatCame) {
  // What `printf '{"state":"stale"}' | gzip -n` prints, up to the sum at its end.
  const std::string bytes(
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xab\x56\x2a\x2e\x49\x2c\x49\x55\xb2\x02"
      "\xd1\x39\xa9\x4a\xb5\x00",
      26);
  HttpServer server([&](Connection& connection) {
    connection.send(response("200 OK", bytes, "Content-Encoding: gzip\r\n"));
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{\"state\":\"stale\"}");
}

TEST(UrlSession, chunksThatStopBeforeTheLastGiveNothingOrWhatCame) {
  HttpServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n");
  });
  UrlSession session(5);
  for (int i = 0; i < 20; ++i) {
    const auto body = fetch(session, server.url());
    EXPECT_EQ(body.value_or("{}"), "{}");
  }
}

TEST(UrlSession, aBodyOfMoreThan16MiBGivesNothing) {
  constexpr std::size_t limit = 16U << 20U;
  for (const std::size_t size : {limit, limit + 1}) {
    HttpServer server([&](Connection& connection) {
      connection.send(response("200 OK", std::string(size, ' ')));
    });
    UrlSession session(5);
    const auto body = fetch(session, server.url());
    EXPECT_EQ(body.value_or("").size(), size > limit ? 0 : size);
    EXPECT_EQ(body.has_value(), size <= limit);
  }
}

TEST(UrlSession, anAnswerWithoutEndGivesNothing) {
  for (const char* head : {"Content-Length: 400000000\r\n", ""}) {
    HttpServer server([&](Connection& connection) {
      connection.send("HTTP/1.1 200 OK\r\n" + std::string(head) + "\r\n");
      const std::string megabyte(1 << 20, ' ');
      for (int i = 0; i < 300; ++i) connection.send(megabyte);
      connection.waitUntilClosed();
    });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), none) << head;
  }
}

TEST(UrlSession, aRequestWaitsForAConnectionAsLongAsForAnAnswer) {
  constexpr std::size_t limit = 6;
  std::atomic<bool> isSilent = true;
  HttpServer server([&](Connection& connection) {
    while (isSilent) std::this_thread::sleep_for(1ms);
    connection.send(response("200 OK", "{}"));
  });
  UrlSession session(1);
  std::vector<std::future<std::optional<std::string>>> first;
  for (std::size_t i = 0; i < limit; ++i) first.push_back(startFetch(session, server.url()));
  while (server.requests().size() < limit) std::this_thread::sleep_for(1ms);
  std::this_thread::sleep_for(500ms);
  auto second = startFetch(session, server.url());
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(server.requests().size(), limit);
  isSilent = false;
  for (auto& body : first) EXPECT_EQ(body.get(), "{}");
  EXPECT_EQ(second.get(), "{}");
}

TEST(UrlSession, connectingIsAPartOfTheWaitForTheFirstByte) {
  // One that accepts nobody, and whose queue is full.
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(listener, 0), 0);
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  std::vector<int> queue;
  for (int i = 0; i < 4; ++i) {
    queue.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    ::connect(queue.back(), reinterpret_cast<sockaddr*>(&address), size);
  }
  const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  UrlSession session(0.5);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(fetch(session, url), none);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 900ms);

  auto patient = std::make_unique<UrlSession>(60);
  auto body = startFetch(*patient, url);
  std::this_thread::sleep_for(50ms);
  patient.reset();
  EXPECT_EQ(body.get(), none);
  for (const int waiting : queue) ::close(waiting);
  ::close(listener);
}

TEST(UrlSession, theEndOfTheSessionIsNotThatOfABody) {
  std::promise<void> sent;
  HttpServer server([&](Connection& connection) {
    connection.send("HTTP/1.0 200 OK\r\n\r\n{}");
    sent.set_value();
    connection.waitUntilClosed();
  });
  auto session = std::make_unique<UrlSession>(60);
  auto body = startFetch(*session, server.url());
  sent.get_future().wait();
  std::this_thread::sleep_for(50ms);
  session.reset();
  EXPECT_EQ(body.get(), none);
}

/// While it lives, the system has no thread to give.
class NoThreads {
 public:
  NoThreads() {
    ::pthread_getattr_default_np(&usual);
    ::pthread_attr_init(&boundless);
    ::pthread_attr_setstacksize(&boundless, std::size_t{1} << 46U);
    ::pthread_setattr_default_np(&boundless);
  }
  ~NoThreads() {
    ::pthread_setattr_default_np(&usual);
    ::pthread_attr_destroy(&boundless);
    ::pthread_attr_destroy(&usual);
  }
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;

 private:
  pthread_attr_t usual = {};
  pthread_attr_t boundless = {};
};

TEST(UrlSession, withoutAThreadThereIsNoBody) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(5);
  {
    const NoThreads noThreads;
    EXPECT_EQ(fetch(session, server.url()), none);
  }
  EXPECT_EQ(fetch(session, server.url()), "{}");
}

TEST(UrlSession, withoutTheThreadThatTheToolkitWantsThereIsNoBodyThatOnce) {
  hasToolkitLeaked = true;  // what waits in a thread that never starts
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(0.5);
  EXPECT_EQ(fetch(session, "data:text/plain,x"), "x");  // which takes the session's thread alone
  {
    const NoThreads noThreads;
    EXPECT_EQ(fetch(session, server.url()), none);
  }
  EXPECT_EQ(fetch(session, server.url()), "{}");
}

TEST(UrlSession, aHeadThatNeverEndsHoldsOneThreadAlone) {
  std::atomic<bool> isEndless = true;
  HttpServer server([&](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\n");
    while (isEndless) connection.send("X: " + std::string(1000, 'x') + "\r\n");
  });
  UrlSession session(0.3);
  EXPECT_EQ(fetch(session, server.url()), none);
  const std::size_t connections = server.requests().size();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(fetch(session, server.url()), none);
  EXPECT_EQ(server.requests().size(), connections);
  isEndless = false;
}

TEST(UrlSession, aRequestNamesItsHostAndItsQuery) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  const std::string authority = server.url("").substr(std::string("http://").size());
  const std::vector<std::pair<std::string, std::string>> targets = {
      {"", "/"},
      {"/", "/"},
      {"?a=b", "/?a=b"},
      {"/b?c=%20d&e=f#g", "/b?c=%20d&e=f"},
      {"/\xC3\xA9", "/%C3%A9"},
  };
  UrlSession session(5);
  for (const auto& [target, sent] : targets) {
    EXPECT_EQ(fetch(session, server.url(target)), "{}") << target;
    EXPECT_TRUE(server.requests().back().starts_with("GET " + sent +
                                                     " HTTP/1.1\r\nHost: " + authority + "\r\n"))
        << server.requests().back();
  }
}

TEST(UrlSession, anAnswerThatAsksForProxyCredentialsIsAnAnswer) {
  HttpServer server([&](Connection& connection) {
    connection.send(response("407 Proxy Authentication Required", "{}",
                             "Proxy-Authenticate: Basic realm=\"x\"\r\n"));
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{}");
}

TEST(UrlSession, aProxyInTheEnvironmentIsNotUsed) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  ::setenv("http_proxy", "http://127.0.0.1:1/", 1);
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{}");
  ::unsetenv("http_proxy");
}

TEST(UrlSession, nothingOfOneAnswerIsSentWithTheNextRequest) {
  HttpServer server([](Connection& connection) {
    connection.send(response("200 OK", "{}",
                             "Set-Cookie: a=b\r\nETag: \"x\"\r\nCache-Control: max-age=60\r\n"));
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{}");
  EXPECT_EQ(fetch(session, server.url()), "{}");
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0], requests[1]);
}

TEST(UrlSession, nothingIsStartedBeforeTheFirstRequest) {
  const long before = countIn("/proc/self/task");
  const UrlSession session(4);
  EXPECT_EQ(countIn("/proc/self/task"), before);
}

TEST(UrlSession, pollingLeavesNothingBehind) {
  for (const bool staysOpen : {false, true}) {
    HttpServer server([&](Connection& connection) {
      connection.send(response("200 OK", "{}", staysOpen ? "Connection: keep-alive\r\n" : ""));
      connection.staysOpen = staysOpen;
    });
    UrlSession session(5);
    const auto poll = [&](int times) {
      for (int i = 0; i < times; ++i) EXPECT_EQ(fetch(session, server.url()), "{}");
    };
    poll(20);
    std::this_thread::sleep_for(100ms);
    const long threads = countIn("/proc/self/task");
    const long descriptors = countIn("/proc/self/fd");
    poll(200);
    std::this_thread::sleep_for(100ms);
    EXPECT_LE(countIn("/proc/self/task"), threads + 1);
    EXPECT_LE(countIn("/proc/self/fd"), descriptors + 1);
  }
}

TEST(UrlSession, theThreadGoesWithTheSession) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  const auto fetchOnce = [&] {
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), "{}");
  };
  fetchOnce();
  std::this_thread::sleep_for(100ms);
  const long threads = countIn("/proc/self/task");
  for (int i = 0; i < 10; ++i) fetchOnce();
  std::this_thread::sleep_for(100ms);
  EXPECT_LE(countIn("/proc/self/task"), threads + 1);
}

}  // namespace

/// Asked by the leak checker, where there is one, before it looks for leaks.
// NOLINTNEXTLINE(bugprone-reserved-identifier): its name there
extern "C" [[gnu::visibility("default")]] int __lsan_is_turned_off() {
  return hasToolkitLeaked;
}
