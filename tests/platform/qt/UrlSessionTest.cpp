#include "platform/UrlSession.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "Fetch.h"
#include "HttpServer.h"

namespace {

using namespace std::chrono_literals;
using platform::UrlSession;
using Connection = HttpServer::Connection;

const std::optional<std::string> none;

long countIn(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST(UrlSession, redirectsOffThisMachineGiveNothing) {
  for (const char* location :
       {"http://example.invalid/", "http://localhost/", "http://192.0.2.1/", "https://127.0.0.1/",
        "//192.0.2.1/status.json", "ftp://127.0.0.1/", "file:///etc/hostname",
        "data:text/plain,hello", "javascript:0", "http://127.0.0.1.example.invalid/",
        "http://user@192.0.2.1:80@127.0.0.2/", "http://[fe80::1]/", "http://0.0.0.0/", ":",
        "http://127.0.0.1:99999/", "\xff\xfe"}) {
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
       {std::string("SSH-2.0-OpenSSH\r\n"), std::string(100'000, 'x'), std::string(1000, '\0'),
        std::string("{\"state\":\"authorized\"}"), std::string("HTTP/1.1\r\n\r\n"),
        std::string("HTTP/1.1 abc OK\r\n\r\n{}")}) {
    HttpServer server([&](Connection& connection) { connection.send(bytes); });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), none) << bytes.substr(0, 100);
  }
}

// Depending on what it notices first, Qt takes a connection that ends within the chunks for a
// failure or for the end of the body. Nothing is ever made up.
TEST(UrlSession, anAnswerOfChunksCutShortGivesNothingOrWhatCame) {
  HttpServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{");
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()).value_or("{"), "{");
}

// Qt takes a chunk's size that it cannot read for the end of the body.
TEST(UrlSession, aMalformedChunkEndsTheBody) {
  for (const char* size : {"zz", "ffffffffffffffff", "-1"}) {
    HttpServer server([&](Connection& connection) {
      connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n" +
                      std::string(size) + "\r\n{}\r\n0\r\n\r\n");
    });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), "{}") << size;
  }
}

TEST(UrlSession, anAnswerWithoutEndGivesNothing) {
  HttpServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 400000000\r\n\r\n");
    const std::string megabyte(1 << 20, ' ');
    for (int i = 0; i < 300; ++i) connection.send(megabyte);
    connection.waitUntilClosed();
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), none);
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
      connection.send(response("200 OK", "{}"));
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
