#include <algorithm>
#include <charconv>
#include <optional>
#include <string>

#include "platform/qt/HttpResponse.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using platform::HttpResponse;
using Progress = HttpResponse::Progress;

/// An answer that arrived in pieces of that size before its connection ended.
HttpResponse responseOf(std::string_view bytes, std::size_t size, Progress& progress) {
  HttpResponse response;
  progress = Progress::incomplete;
  for (std::size_t at = 0; at < bytes.size(); at += size) {
    const Progress before = progress;
    progress = response.take(bytes.substr(at, size));
    fuzz::require(before == Progress::incomplete || progress == before, "an outcome is final");
  }
  const Progress before = progress;
  progress = response.end();
  fuzz::require(progress != Progress::incomplete, "the end of a connection ends the answer");
  fuzz::require(before == Progress::incomplete || progress == before, "an outcome is final");
  return response;
}

std::optional<std::string> bodyOf(const std::string& bytes) {
  Progress progress;
  HttpResponse response = responseOf(bytes, bytes.size(), progress);
  if (progress != Progress::complete) return {};
  return std::move(response.body);
}

std::string hexadecimal(std::size_t number) {
  char digits[16];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number, 16);
  return {digits, end};
}

/// Each byte of the body says how long the chunk is that begins with it.
std::string inChunks(std::string_view body) {
  std::string text;
  while (!body.empty()) {
    const std::size_t size =
        std::min(body.size(), std::size_t{1} + static_cast<unsigned char>(body.front()));
    text += hexadecimal(size) + "\r\n" + std::string(body.substr(0, size)) + "\r\n";
    body.remove_prefix(size);
  }
  return text + "0\r\n\r\n";
}

void requireEveryCutToGiveTheSame(std::string_view input) {
  Progress whole;
  const HttpResponse expected = responseOf(input, std::max<std::size_t>(input.size(), 1), whole);
  fuzz::require(expected.body.size() <= input.size(), "nothing is made up");
  for (const std::size_t size : {1U, 3U, 64U}) {
    Progress progress;
    const HttpResponse response = responseOf(input, size, progress);
    fuzz::require(progress == whole, "the outcome is the same, however an answer is cut up");
    if (whole != Progress::complete) continue;
    fuzz::require(response.status == expected.status && response.location == expected.location &&
                      response.body == expected.body,
                  "so is what the answer says");
  }
}

void requireRoundTrip(const std::string& body) {
  const std::string head = "HTTP/1.1 200 OK\r\n";
  const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  fuzz::require(bodyOf(head + "\r\n" + body) == body, "a body that ends with the connection");
  fuzz::require(bodyOf(head + length + body + body) == body, "a body of a known length");
  fuzz::require(bodyOf(head + "Transfer-Encoding: chunked\r\n\r\n" + inChunks(body)) == body,
                "a body in chunks");
}

}  // namespace

void fuzz::checkInput(std::string_view input) {
  requireEveryCutToGiveTheSame(input);
  requireRoundTrip(std::string(input));
}
