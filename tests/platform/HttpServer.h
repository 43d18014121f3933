#pragma once

#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// A server on the loopback interface that does what a test tells it to, byte by byte.
class HttpServer {
 public:
  class Connection {
   public:
    void send(std::string_view bytes) const;
    /// Waits until the client has closed the connection, or the server ends.
    void waitUntilClosed() const;
    /// Makes closing the connection a reset.
    void reset() const;

    std::string request;     ///< the head of the current request
    bool staysOpen = false;  ///< after the script, for another request

   private:
    friend HttpServer;
    explicit Connection(int accepted) : socket(accepted) {}
    bool readRequest();
    int socket;
  };

  /// Called for each request, on a thread per connection. The connection is closed after it, unless
  /// the script set `staysOpen`.
  using Script = std::function<void(Connection&)>;

  explicit HttpServer(Script script);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  std::string url(const std::string& path = "/status.json") const;
  /// The heads of the requests so far.
  std::vector<std::string> requests() const;

 private:
  void accept();
  void serve(int socket);

  const Script script;
  int listener = -1;
  int port = 0;
  mutable std::mutex mutex;
  bool isEnding = false;
  std::vector<std::string> heads;
  std::list<int> sockets;
  std::vector<std::thread> threads;
  std::thread acceptor;
};

/// A whole answer, which says that the connection ends with it unless `moreHeaders` says otherwise.
std::string response(const std::string& status, const std::string& body,
                     const std::string& moreHeaders = {});
