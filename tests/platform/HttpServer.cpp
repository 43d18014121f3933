#include "HttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

void HttpServer::Connection::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket, bytes.data(), bytes.size(), 0);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void HttpServer::Connection::waitUntilClosed() const {
  std::array<char, 1024> ignored;
  while (::recv(socket, ignored.data(), ignored.size(), 0) > 0) {
  }
}

void HttpServer::Connection::reset() const {
  const linger atOnce = {.l_onoff = 1, .l_linger = 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

bool HttpServer::Connection::readRequest() {
  request.clear();
  std::array<char, 4096> buffer;
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (count <= 0) return false;
    request.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return true;
}

HttpServer::HttpServer(Script serverScript) : script(std::move(serverScript)) {
  listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const general = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener, general, size) != 0 || ::listen(listener, 64) != 0 ||
      ::getsockname(listener, general, &size) != 0) {
    throw std::runtime_error("no server on the loopback interface");
  }
  port = ntohs(address.sin_port);
  acceptor = std::thread([this] { accept(); });
}

HttpServer::~HttpServer() {
  {
    const std::lock_guard lock(mutex);
    isEnding = true;
    for (const int socket : sockets) ::shutdown(socket, SHUT_RDWR);
  }
  // A connection of our own wakes the acceptor, on every system.
  const int waker = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<in_port_t>(port));
  ::connect(waker, reinterpret_cast<sockaddr*>(&address), sizeof address);
  acceptor.join();
  ::close(waker);
  ::close(listener);
  for (std::thread& thread : threads) thread.join();
}

std::string HttpServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port) + path;
}

std::vector<std::string> HttpServer::requests() const {
  const std::lock_guard lock(mutex);
  return heads;
}

void HttpServer::accept() {
  while (true) {
    const int socket = ::accept(listener, nullptr, nullptr);
    const std::lock_guard lock(mutex);
    if (isEnding) {
      ::close(socket);
      return;
    }
    if (socket == -1) continue;
    sockets.push_back(socket);
    threads.emplace_back([this, socket] { serve(socket); });
  }
}

void HttpServer::serve(int socket) {
  Connection connection(socket);
  do {
    connection.staysOpen = false;
    if (!connection.readRequest()) break;
    {
      const std::lock_guard lock(mutex);
      heads.push_back(connection.request);
    }
    script(connection);
  } while (connection.staysOpen);
  const std::lock_guard lock(mutex);
  sockets.remove(socket);
  ::close(socket);
}

std::string response(const std::string& status, const std::string& body,
                     const std::string& moreHeaders) {
  const bool saysWhatBecomesOfIt = moreHeaders.find("Connection:") != std::string::npos;
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         (saysWhatBecomesOfIt ? "" : "Connection: close\r\n") + moreHeaders + "\r\n" + body;
}
