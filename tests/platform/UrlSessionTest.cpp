#include "platform/UrlSession.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Fetch.h"
#include "HttpServer.h"
#include "MainLoop.h"

namespace {

using namespace std::chrono_literals;
using platform::UrlSession;
using Connection = HttpServer::Connection;

const std::optional<std::string> none;

TEST(UrlSessionContract, givesTheBody) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{}");
}

TEST(UrlSessionContract, sendsOnePlainGet) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(5);
  fetch(session, server.url("/status.json"));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_TRUE(requests[0].starts_with("GET /status.json HTTP/1.1\r\n")) << requests[0];
  EXPECT_TRUE(requests[0].ends_with("\r\n\r\n")) << requests[0];
  EXPECT_EQ(requests[0].find("Content-Length"), std::string::npos) << requests[0];
  EXPECT_EQ(requests[0].find("Upgrade"), std::string::npos) << requests[0];
}

TEST(UrlSessionContract, anAnswerOfAnyStatusIsAnAnswer) {
  for (const char* status :
       {"200 OK", "201 Created", "206 Partial Content", "300 Multiple Choices", "400 Bad Request",
        "403 Forbidden", "404 Not Found", "405 Method Not Allowed", "409 Conflict", "410 Gone",
        "418 I'm a teapot", "429 Too Many Requests", "499 Unknown", "500 Internal Server Error",
        "501 Not Implemented", "502 Bad Gateway", "503 Service Unavailable", "599 Unknown"}) {
    HttpServer server([&](Connection& connection) { connection.send(response(status, "{}")); });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), "{}") << status;
    EXPECT_EQ(server.requests().size(), 1u) << status;
  }
}

TEST(UrlSessionContract, anAnswerThatAsksForCredentialsIsAnAnswer) {
  for (const char* scheme : {"Basic realm=\"x\"", "Digest realm=\"x\", nonce=\"1\"", "Bearer"}) {
    HttpServer server([&](Connection& connection) {
      connection.send(
          response("401 Unauthorized", "{}", "WWW-Authenticate: " + std::string(scheme) + "\r\n"));
    });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), "{}") << scheme;
  }
}

TEST(UrlSessionContract, anEmptyAnswerIsAnAnswer) {
  for (const std::string& bytes : {response("200 OK", ""), response("404 Not Found", ""),
                                   std::string("HTTP/1.1 204 No Content\r\n\r\n")}) {
    HttpServer server([&](Connection& connection) { connection.send(bytes); });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), "") << bytes;
  }
}

TEST(UrlSessionContract, anAnswerMayEndWithTheConnection) {
  HttpServer server(
      [](Connection& connection) { connection.send("HTTP/1.1 200 OK\r\n\r\n{\"a\":1}"); });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{\"a\":1}");
}

TEST(UrlSessionContract, anAnswerMayComeInChunks) {
  HttpServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{\"\r\n");
    connection.send("5;x=y\r\na\":1}\r\n0\r\nTrailer: x\r\n\r\n");
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{\"a\":1}");
}

TEST(UrlSessionContract, aBodyIsBytes) {
  const std::string body("\0\xff\r\n\r\n\xc3", 7);
  HttpServer server([&](Connection& connection) { connection.send(response("200 OK", body)); });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), body);
}

TEST(UrlSessionContract, aCompressedBodyIsDecoded) {
  // What `printf '{"state":"stale"}' | gzip -n` prints.
  const std::string bytes(
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xab\x56\x2a\x2e\x49\x2c\x49\x55\xb2\x02"
      "\xd1\x39\xa9\x4a\xb5\x00\xac\x57\x69\xad\x11\x00\x00\x00",
      34);
  HttpServer server([&](Connection& connection) {
    connection.send(response("200 OK", bytes, "Content-Encoding: gzip\r\n"));
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{\"state\":\"stale\"}");
}

TEST(UrlSessionContract, aLargeBodyIsWhole) {
  std::string body(8'000'000, ' ');
  for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>(i * i >> 9);
  HttpServer server([&](Connection& connection) { connection.send(response("200 OK", body)); });
  UrlSession session(5);
  EXPECT_TRUE(fetch(session, server.url()) == body);
}

TEST(UrlSessionContract, nobodyListeningGivesNothing) {
  std::string url;
  {
    const HttpServer server([](Connection&) {});
    url = server.url();
  }
  UrlSession session(5);
  EXPECT_EQ(fetch(session, url), none);
}

TEST(UrlSessionContract, aConnectionThatIsDroppedGivesNothing) {
  HttpServer closing([](Connection&) {});
  HttpServer resetting([](Connection& connection) { connection.reset(); });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, closing.url()), none);
  EXPECT_EQ(fetch(session, resetting.url()), none);
}

TEST(UrlSessionContract, anAnswerCutShortGivesNothing) {
  for (const char* head : {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{}",
                           "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n",
                           "HTTP/1.1 404 Not Found\r\nContent-Length: 100\r\n\r\n{}",
                           "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 1\r\n\r\n"}) {
    HttpServer server([&](Connection& connection) { connection.send(head); });
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url()), none) << head;
  }
}

TEST(UrlSessionContract, anAnswerThatCannotBeDecodedGivesNothing) {
  HttpServer server([](Connection& connection) {
    connection.send(response("200 OK", "this is not gzip", "Content-Encoding: gzip\r\n"));
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), none);
}

TEST(UrlSessionContract, silenceForTheTimeOutGivesNothing) {
  HttpServer silent([](Connection& connection) { connection.waitUntilClosed(); });
  HttpServer inTheBody([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{");
    connection.waitUntilClosed();
  });
  UrlSession session(0.3);
  EXPECT_EQ(fetch(session, silent.url()), none);
  EXPECT_EQ(fetch(session, inTheBody.url()), none);
}

TEST(UrlSessionContract, aSlowAnswerIsWaitedForAsLongAsItTrickles) {
  HttpServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n");
    for (int i = 0; i < 15; ++i) {
      std::this_thread::sleep_for(200ms);
      connection.send("x");
    }
  });
  UrlSession session(2);
  EXPECT_EQ(fetch(session, server.url()), "xxxxxxxxxxxxxxx");
}

TEST(UrlSessionContract, redirectsWithinTheOriginAreFollowed) {
  for (const char* status : {"301 Moved Permanently", "302 Found", "303 See Other",
                             "307 Temporary Redirect", "308 Permanent Redirect"}) {
    HttpServer* self = nullptr;
    HttpServer server([&](Connection& connection) {
      if (connection.request.starts_with("GET /third?a=b HTTP/1.1\r\n")) {
        connection.send(response("200 OK", "{}"));
        return;
      }
      const bool isFirst = connection.request.starts_with("GET /first ");
      const std::string location = isFirst ? "/second" : self->url("/third?a=b");
      connection.send(response(status, "moved", "Location: " + location + "\r\n"));
    });
    self = &server;
    UrlSession session(5);
    EXPECT_EQ(fetch(session, server.url("/first")), "{}") << status;
    EXPECT_EQ(server.requests().size(), 3u);
  }
}

TEST(UrlSessionContract, redirectsInACircleGiveNothing) {
  HttpServer server([](Connection& connection) {
    connection.send(response("302 Found", "moved", "Location: /status.json\r\n"));
  });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), none);
  EXPECT_LE(server.requests().size(), 25u);
}

TEST(UrlSessionContract, aRedirectToNowhereIsAnAnswer) {
  HttpServer server([](Connection& connection) { connection.send(response("302 Found", "{}")); });
  UrlSession session(5);
  EXPECT_EQ(fetch(session, server.url()), "{}");
}

TEST(UrlSessionContract, handlersRunOneAtATimeAndNotOnTheMainThread) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(5);
  const auto mainThread = std::this_thread::get_id();
  std::atomic<int> running = 0;
  std::vector<std::future<void>> done;
  for (int i = 0; i < 5; ++i) {
    const auto promise = std::make_shared<std::promise<void>>();
    done.push_back(promise->get_future());
    session.dataTaskWithUrl(platform::Url::withString(server.url()).value(),
                            [&running, mainThread, promise](const auto&) {
                              EXPECT_NE(std::this_thread::get_id(), mainThread);
                              EXPECT_EQ(++running, 1);
                              std::this_thread::sleep_for(5ms);
                              --running;
                              promise->set_value();
                            });
  }
  for (auto& future : done) ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
}

TEST(UrlSessionContract, requestsAreIndependentAndMayComeFromAnyThread) {
  HttpServer server([](Connection& connection) {
    const auto start = connection.request.find('/') + 1;
    connection.send(response("200 OK", connection.request.substr(start, 2)));
  });
  UrlSession session(10);
  std::mutex mutex;
  std::multiset<std::string> bodies;
  std::vector<std::future<void>> done;
  std::vector<std::thread> threads;
  for (int i = 10; i < 40; ++i) {
    auto promise = std::make_shared<std::promise<void>>();
    done.push_back(promise->get_future());
    threads.emplace_back([&, i, promise] {
      const auto url = platform::Url::withString(server.url("/" + std::to_string(i)));
      session.dataTaskWithUrl(url.value(), [&, promise](const auto& body) {
        {
          const std::lock_guard lock(mutex);
          bodies.insert(body.value_or("none"));
        }
        promise->set_value();  // the last that may touch what belongs to the test
      });
    });
  }
  for (auto& thread : threads) thread.join();
  for (auto& future : done) ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
  std::multiset<std::string> expected;
  for (int i = 10; i < 40; ++i) expected.insert(std::to_string(i));
  EXPECT_EQ(bodies, expected);
}

TEST(UrlSessionContract, moreSilentRequestsThanConnectionsAllTimeOut) {
  HttpServer server([](Connection& connection) { connection.waitUntilClosed(); });
  UrlSession session(0.3);
  std::vector<std::future<std::optional<std::string>>> bodies;
  for (int i = 0; i < 15; ++i) bodies.push_back(startFetch(session, server.url()));
  for (auto& body : bodies) {
    ASSERT_EQ(body.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(body.get(), none);
  }
}

TEST(UrlSessionContract, aHandlerMayStartAnotherRequest) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(5);
  const auto url = platform::Url::withString(server.url()).value();
  const auto second = std::make_shared<std::promise<std::optional<std::string>>>();
  session.dataTaskWithUrl(url, [&session, &url, second](const auto&) {
    session.dataTaskWithUrl(url, [second](auto body) { second->set_value(std::move(body)); });
  });
  EXPECT_EQ(second->get_future().get(), "{}");
}

TEST(UrlSessionContract, aSessionThatGoesEndsItsRequests) {
  HttpServer server([](Connection& connection) { connection.waitUntilClosed(); });
  std::atomic<int> bodies = 0;
  std::atomic<int> calls = 0;
  {
    UrlSession session(60);
    for (int i = 0; i < 10; ++i) {
      session.dataTaskWithUrl(platform::Url::withString(server.url()).value(),
                              [&](const auto& body) {
                                if (body) ++bodies;
                                ++calls;
                              });
      if (i == 5) {
        while (server.requests().empty()) std::this_thread::sleep_for(1ms);
      }
    }
  }
  for (int i = 0; i < 1000 && calls < 10; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(calls, 10);
  EXPECT_EQ(bodies, 0);
}

TEST(UrlSessionContract, aSessionMayGoWhileAHandlerRuns) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  std::atomic<bool> isOver = false;
  std::promise<void> entered;
  auto session = std::make_unique<UrlSession>(5);
  session->dataTaskWithUrl(platform::Url::withString(server.url()).value(), [&](const auto&) {
    entered.set_value();
    std::this_thread::sleep_for(100ms);
    isOver = true;
  });
  entered.get_future().wait();
  session.reset();
  for (int i = 0; i < 1000 && !isOver; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(isOver);
}

TEST(UrlSessionContract, aSessionWithoutARequestMayGo) {
  for (int i = 0; i < 10; ++i) const UrlSession session(4);
}

TEST(UrlSessionContract, theHandlerIsReleasedAfterItsCall) {
  HttpServer server([](Connection& connection) { connection.send(response("200 OK", "{}")); });
  UrlSession session(5);
  const auto captured = std::make_shared<std::promise<void>>();
  auto done = captured->get_future();
  performOnMainLoop([&] {
    session.dataTaskWithUrl(platform::Url::withString(server.url()).value(),
                            [captured](const auto&) { captured->set_value(); });
  });
  ASSERT_EQ(done.wait_for(10s), std::future_status::ready);
  for (int i = 0; i < 1000 && captured.use_count() > 1; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(captured.use_count(), 1);
}

}  // namespace
