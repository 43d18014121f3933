#include "platform/qt/HttpResponse.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>

namespace platform {

namespace {

/// How much remains of a body that ends with the connection.
constexpr auto unknown = std::numeric_limits<std::uint64_t>::max();

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

/// Compares without regard to the case of ASCII letters.
bool isWord(std::string_view text, std::string_view inLowerCase) {
  const auto lower = [](unsigned char c) { return std::tolower(c); };
  return std::ranges::equal(text, inLowerCase, {}, lower);
}

/// The number that `digits` consists of.
std::optional<std::uint64_t> number(std::string_view digits, int base) {
  std::uint64_t value = 0;
  const char* const end = digits.data() + digits.size();
  const auto [rest, error] = std::from_chars(digits.data(), end, value, base);
  if (error != std::errc() || rest != end) return std::nullopt;
  return value;
}

}  // namespace

HttpResponse::Progress HttpResponse::take(std::string_view bytes) {
  while (progress == Progress::incomplete && !bytes.empty()) {
    if (part == Part::body) {
      takeBody(bytes);
    } else {
      takeLine(bytes);
    }
  }
  return progress;
}

HttpResponse::Progress HttpResponse::end() {
  if (progress == Progress::incomplete) {
    const bool isWhole = part == Part::body && remaining == unknown;
    progress = isWhole ? Progress::complete : Progress::malformed;
  }
  return progress;
}

void HttpResponse::takeBody(std::string_view& bytes) {
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), remaining));
  if (size > longestBody - body.size()) {
    progress = Progress::malformed;
    return;
  }
  body.append(bytes, 0, size);
  bytes.remove_prefix(size);
  linesSize = 0;
  if (remaining == unknown) return;
  remaining -= size;
  if (remaining > 0) return;
  if (isChunked) {
    part = Part::chunkEnd;
  } else {
    progress = Progress::complete;
  }
}

void HttpResponse::takeLine(std::string_view& bytes) {
  const std::size_t size = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
  linesSize += size;
  if (linesSize > longestHead) {
    progress = Progress::malformed;
    return;
  }
  line += bytes.substr(0, size);
  bytes.remove_prefix(size);
  if (line.back() != '\n') return;
  line.pop_back();
  if (line.ends_with('\r')) line.pop_back();
  if (!readLine(line)) progress = Progress::malformed;
  line.clear();
}

bool HttpResponse::readLine(std::string_view text) {
  switch (part) {
    case Part::statusLine:
      return readStatusLine(text);
    case Part::header:
      return text.empty() ? beginBody() : readHeader(text);
    case Part::chunkEnd:
      part = Part::chunkSize;
      return text.empty();
    case Part::chunkSize:
      return readChunkSize(text);
    case Part::trailer:
      if (text.empty()) progress = Progress::complete;
      return true;
    case Part::body:
      break;
  }
  return false;
}

bool HttpResponse::readStatusLine(std::string_view text) {
  // HTTP/1.1 200 OK, or without the last word
  if (!text.starts_with("HTTP/1.") || text.size() < 12 || text[8] != ' ') return false;
  if (text.size() > 12 && text[12] != ' ') return false;
  const auto code = number(text.substr(9, 3), 10);
  if (!code || *code < 100) return false;
  status = static_cast<int>(*code);
  part = Part::header;
  return true;
}

bool HttpResponse::readHeader(std::string_view text) {
  const std::size_t colon = text.find(':');
  const bool isContinued = text.starts_with(' ') || text.starts_with('\t');  // the line before
  if (colon == std::string_view::npos || isContinued) return true;
  const std::string_view name = trimmed(text.substr(0, colon));
  const std::string_view value = trimmed(text.substr(colon + 1));
  if (isWord(name, "location")) {
    location = value;
  } else if (isWord(name, "content-length")) {
    const auto length = number(value, 10);
    if (!length || *length > longestBody) return false;
    if (contentLength && contentLength != length) return false;
    contentLength = length;
  } else if (isWord(name, "transfer-encoding")) {
    if (isWord(value, "identity")) return true;
    return isChunked = isWord(value, "chunked");
  } else if (isWord(name, "content-encoding")) {
    return value.empty() || isWord(value, "identity");
  }
  return true;
}

bool HttpResponse::beginBody() {
  if (status == 101) return false;  // nobody asked for another protocol
  if (status < 200) {               // another answer is to follow
    const std::size_t size = linesSize;
    *this = {};
    linesSize = size;
    return true;
  }
  const bool hasNone = status == 204 || status == 304;
  remaining = contentLength.value_or(unknown);
  if (hasNone || (!isChunked && remaining == 0)) {
    progress = Progress::complete;
  } else {
    part = isChunked ? Part::chunkSize : Part::body;
  }
  return true;
}

bool HttpResponse::readChunkSize(std::string_view text) {
  const auto size = number(trimmed(text.substr(0, text.find(';'))), 16);
  if (!size || *size > longestBody) return false;
  remaining = *size;
  part = remaining > 0 ? Part::body : Part::trailer;
  return true;
}

}  // namespace platform
