// socket_poll PORT COUNT: asks the service for its status COUNT times with nothing but a socket and
// lets the answers go. No program can ask for less.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  sockaddr_in service{};
  service.sin_family = AF_INET;
  service.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  service.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
  constexpr std::string_view request =
      "GET /status.json HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
  static char buffer[1U << 16U];
  for (int i = 0; i < std::atoi(argv[2]); ++i) {
    const int connection = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&service), sizeof service) != 0)
      return 1;
    if (::write(connection, request.data(), request.size()) <= 0) return 1;
    while (::read(connection, buffer, sizeof buffer) > 0) continue;
    ::close(connection);
  }
}
