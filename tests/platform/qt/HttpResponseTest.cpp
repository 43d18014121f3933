#include "platform/qt/HttpResponse.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using platform::HttpResponse;
using enum HttpResponse::Progress;

/// The body of an answer that arrives as `bytes` and then ends, however the bytes are cut up.
std::optional<std::string> bodyOf(const std::string& bytes) {
  std::vector<std::optional<std::string>> bodies;
  for (const std::size_t size : {bytes.size(), std::size_t{1}, std::size_t{2}, std::size_t{7}}) {
    HttpResponse response;
    for (std::size_t at = 0; at < bytes.size(); at += size) {
      response.take(std::string_view(bytes).substr(at, size));
    }
    const bool isWhole = response.end() == complete;
    bodies.push_back(isWhole ? std::optional(response.body) : std::nullopt);
    EXPECT_EQ(bodies.back(), bodies.front()) << size << " bytes at a time:\n" << bytes;
  }
  return bodies.front();
}

std::optional<std::string> bodyOf(const std::string& header, const std::string& body) {
  return bodyOf("HTTP/1.1 200 OK\r\n" + header + "\r\n\r\n" + body);
}

const std::optional<std::string> none;

TEST(HttpResponse, endsWhereTheHeadSays) {
  HttpResponse response;
  EXPECT_EQ(response.take("HTTP/1.1 200 OK\r\nContent-Le"), incomplete);
  EXPECT_EQ(response.take("ngth: 3\r\n\r\n{"), incomplete);
  EXPECT_EQ(response.take("}"), incomplete);
  EXPECT_EQ(response.take("\nand more"), complete);
  EXPECT_EQ(response.take("and more"), complete);
  EXPECT_EQ(response.end(), complete);
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "{}\n");
}

TEST(HttpResponse, staysMalformed) {
  HttpResponse response;
  EXPECT_EQ(response.take("SSH-2.0-OpenSSH\r\n"), malformed);
  EXPECT_EQ(response.take("HTTP/1.1 204 No Content\r\n\r\n"), malformed);
  EXPECT_EQ(response.end(), malformed);
}

TEST(HttpResponse, theStatusLineIsThatOfHttp1) {
  for (const char* line : {"HTTP/1.1 200 OK", "HTTP/1.0 200 OK", "HTTP/1.1 200", "HTTP/1.1 200 ",
                           "HTTP/1.1 999 \xff"}) {
    EXPECT_EQ(bodyOf(std::string(line) + "\r\n\r\n{}"), "{}") << line;
  }
  for (const char* line : {"", " ", "HTTP/1.1", "HTTP/1.1 ", "HTTP/1.1 20", "HTTP/1.1 20 OK",
                           "HTTP/1.1 2000 OK", "HTTP/1.1 abc OK", "HTTP/1.1 -20 OK",
                           "HTTP/1.1 099 OK", "HTTP/1.1  200 OK", "HTTP/2 200 OK", "HTTP/11 200 OK",
                           "http/1.1 200 OK", " HTTP/1.1 200 OK", "ICY 200 OK", "{}"}) {
    EXPECT_EQ(bodyOf(std::string(line) + "\r\n\r\n{}"), none) << line;
  }
}

TEST(HttpResponse, linesMayEndWithALineFeedAlone) {
  EXPECT_EQ(bodyOf("HTTP/1.1 200 OK\nContent-Length: 2\n\n{}"), "{}");
  EXPECT_EQ(bodyOf("HTTP/1.1 200 OK\nTransfer-Encoding: chunked\n\n2\n{}\n0\n\n"), "{}");
}

TEST(HttpResponse, headerNamesHaveNoCase) {
  EXPECT_EQ(bodyOf("cONTENT-lENGTH:2", "{}and more"), "{}");
  EXPECT_EQ(bodyOf("Content-Length : 2", "{}and more"), "{}");
  EXPECT_EQ(bodyOf("TRANSFER-ENCODING: \t ChunkeD \t", "2\r\n{}\r\n0\r\n\r\n"), "{}");
}

TEST(HttpResponse, linesThatAreNoHeaderArePassedOver) {
  EXPECT_EQ(bodyOf("no header\r\n: x\r\nContent-Length: 2", "{}and more"), "{}");
  EXPECT_EQ(bodyOf("X: y\r\n  folded\r\n\tContent-Length: 1", "{}"), "{}");
}

TEST(HttpResponse, aBodyOfAKnownLengthMustBeWhole) {
  EXPECT_EQ(bodyOf("Content-Length: 2", "{}"), "{}");
  EXPECT_EQ(bodyOf("Content-Length: 2", "{"), none);
  EXPECT_EQ(bodyOf("Content-Length: 2", ""), none);
  EXPECT_EQ(bodyOf("Content-Length: 0", ""), "");
  EXPECT_EQ(bodyOf("Content-Length: 002", "{}"), "{}");
  EXPECT_EQ(bodyOf("Content-Length: 2\r\nContent-Length: 2", "{}"), "{}");
}

TEST(HttpResponse, aLengthThatIsNoneIsRefused) {
  for (const char* length : {"", "-1", "+2", "2, 2", "2 2", "0x2", "two", "2.0",
                             "18446744073709551618", "2\r\nContent-Length: 3", "268435457"}) {
    EXPECT_EQ(bodyOf("Content-Length: " + std::string(length), "{}"), none) << length;
  }
}

TEST(HttpResponse, aBodyOfUnknownLengthEndsWithTheConnection) {
  EXPECT_EQ(bodyOf("X: y", "{}"), "{}");
  EXPECT_EQ(bodyOf("X: y", ""), "");
}

TEST(HttpResponse, aHeadMustBeWhole) {
  const std::string head = "HTTP/1.1 200 OK\r\nX: y\r\n\r\n";
  for (std::size_t size = 0; size + 2 < head.size(); ++size) {
    EXPECT_EQ(bodyOf(head.substr(0, size)), none) << size;
  }
}

TEST(HttpResponse, chunksAreJoined) {
  const std::string chunked = "Transfer-Encoding: chunked";
  EXPECT_EQ(bodyOf(chunked, "2\r\n{\"\r\n5;x=y\r\na\":1}\r\n0\r\n\r\n"), "{\"a\":1}");
  EXPECT_EQ(bodyOf(chunked, "00A \r\n0123456789\r\nb\r\n0123456789a\r\n000\r\n\r\n"),
            "01234567890123456789a");
  EXPECT_EQ(bodyOf(chunked, "2\r\n{}\r\n0\r\nTrailer: x\r\nContent-Length: 9\r\n\r\nand more"),
            "{}");
  EXPECT_EQ(bodyOf(chunked, "0\r\n\r\n"), "");
  EXPECT_EQ(bodyOf("Content-Length: 1\r\n" + chunked, "2\r\n{}\r\n0\r\n\r\n"), "{}");
}

TEST(HttpResponse, chunksMustBeWholeAndWellFormed) {
  for (const char* chunks :
       {"", "2", "2\r\n", "2\r\n{}", "2\r\n{}\r\n", "2\r\n{}\r\n0\r\n", "2\r\n{}\r\n0\r\nX: y\r\n",
        "zz\r\n{}\r\n0\r\n\r\n", "\r\n{}\r\n0\r\n\r\n", "-2\r\n{}\r\n0\r\n\r\n",
        "0x2\r\n{}\r\n0\r\n\r\n", "2\r\n{}x\r\n0\r\n\r\n", "2\r\n{}0\r\n\r\n",
        "ffffffffffffffff\r\n{}\r\n0\r\n\r\n", "10000000000000002\r\n{}\r\n0\r\n\r\n",
        "10000001\r\n{}\r\n0\r\n\r\n"}) {
    EXPECT_EQ(bodyOf("Transfer-Encoding: chunked", chunks), none) << chunks;
  }
}

TEST(HttpResponse, encodingsThatNobodyAskedForAreRefused) {
  for (const char* name : {"Content-Encoding: ", "Transfer-Encoding: "}) {
    EXPECT_EQ(bodyOf(name + std::string("Identity"), "{}"), "{}") << name;
    for (const char* encoding : {"gzip", "deflate", "gzip, chunked", "chunkedx"}) {
      EXPECT_EQ(bodyOf(name + std::string(encoding), "2\r\n{}\r\n0\r\n\r\n"), none) << encoding;
    }
  }
}

TEST(HttpResponse, someStatusesHaveNoBody) {
  for (const char* status : {"204 No Content", "304 Not Modified"}) {
    HttpResponse response;
    EXPECT_EQ(response.take("HTTP/1.1 " + std::string(status) + "\r\nContent-Length: 2\r\n\r\n"),
              complete);
    EXPECT_EQ(response.body, "");
  }
}

TEST(HttpResponse, interimAnswersArePassedOver) {
  HttpResponse response;
  EXPECT_EQ(response.take("HTTP/1.1 100 Continue\r\nContent-Length: 5\r\nLocation: /a\r\n\r\n"
                          "HTTP/1.1 103 Early Hints\r\nTransfer-Encoding: chunked\r\n\r\n"
                          "HTTP/1.1 201 Created\r\nContent-Length: 2\r\n\r\n{}"),
            complete);
  EXPECT_EQ(response.status, 201);
  EXPECT_EQ(response.location, std::nullopt);
  EXPECT_EQ(response.body, "{}");
  EXPECT_EQ(bodyOf("HTTP/1.1 101 Switching Protocols\r\n\r\n"), none);
  EXPECT_EQ(bodyOf("HTTP/1.1 100 Continue\r\n\r\n"), none);
}

TEST(HttpResponse, theLocationIsGivenAsSent) {
  HttpResponse response;
  response.take("HTTP/1.1 302 Found\r\nLocation:  http://127.0.0.1/\xff?a b:c \r\n\r\n");
  EXPECT_EQ(response.end(), complete);
  EXPECT_EQ(response.location, "http://127.0.0.1/\xff?a b:c");
}

TEST(HttpResponse, whatNeverEndsIsRefused) {
  const std::string megabyte(1 << 20, 'x');
  const std::string lines = [] {
    std::string text;
    while (text.size() < 1 << 20) text += "X: y\r\n";
    return text;
  }();
  const std::string interim = [] {
    std::string text;
    while (text.size() < 1 << 20) text += "HTTP/1.1 100 Continue\r\n\r\n";
    return text;
  }();
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (const auto& bytes :
       {megabyte, "HTTP/1.1 200 " + megabyte, "HTTP/1.1 200 OK\r\n" + lines, interim,
        chunked + "2;" + megabyte, chunked + "2\r\n{}" + megabyte, chunked + "0\r\n" + lines}) {
    HttpResponse response;
    EXPECT_EQ(response.take(bytes), malformed) << bytes.substr(0, 60);
  }
}

TEST(HttpResponse, aBodyHasABound) {
  for (const std::string head : {"", "Transfer-Encoding: chunked\r\n"}) {
    HttpResponse response;
    response.take("HTTP/1.1 200 OK\r\n" + head + "\r\n");
    const std::string chunk = (head.empty() ? "" : "100000\r\n") + std::string(1 << 20, ' ') +
                              (head.empty() ? "" : "\r\n");
    for (int i = 0; i < 256; ++i) ASSERT_EQ(response.take(chunk), incomplete);
    EXPECT_EQ(response.take(chunk), malformed) << head;
  }
}

TEST(HttpResponse, manySmallChunksAreNoHead) {
  HttpResponse response;
  response.take("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
  for (std::size_t i = 0; i < HttpResponse::longestHead; ++i) {
    ASSERT_EQ(response.take("1\r\nx\r\n"), incomplete);
  }
  EXPECT_EQ(response.take("0\r\n\r\n"), complete);
  EXPECT_EQ(response.body.size(), HttpResponse::longestHead);
}

}  // namespace
