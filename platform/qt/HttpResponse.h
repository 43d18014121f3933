#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Reads the answer to one GET as it arrives, in HTTP/1.0 or HTTP/1.1.
///
/// It takes a line feed alone for the end of a line and passes over header lines that it cannot
/// read, but what says how long the body is must be right. A body in an encoding that nobody asked
/// for is refused.
class HttpResponse {
 public:
  static constexpr std::size_t longestHead = 256U << 10U;
  /// An answer that never ends must not take all memory.
  static constexpr std::size_t longestBody = 256U << 20U;

  enum class Progress { incomplete, complete, malformed };

  /// Takes the next bytes. What comes after the end of an answer is ignored.
  Progress take(std::string_view bytes);
  /// Takes the end of the connection: that of the body too if the head announced no other.
  Progress end();

  // These hold what the answer says once it is complete.

  int status = 0;
  std::optional<std::string> location;
  std::string body;

 private:
  enum class Part { statusLine, header, body, chunkEnd, chunkSize, trailer };

  void takeBody(std::string_view& bytes);
  void takeLine(std::string_view& bytes);
  bool readLine(std::string_view text);
  bool readStatusLine(std::string_view text);
  bool readHeader(std::string_view text);
  bool readChunkSize(std::string_view text);
  bool beginBody();

  Progress progress = Progress::incomplete;
  Part part = Part::statusLine;
  std::string line;           ///< as far as it has arrived
  std::size_t linesSize = 0;  ///< of the lines since the last bytes of the body
  bool isChunked = false;
  std::optional<std::uint64_t> contentLength;
  std::uint64_t remaining = 0;  ///< of the body, or of a chunk of it
};

}  // namespace platform
