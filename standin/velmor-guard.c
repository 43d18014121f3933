/* A velmor-guard for rehearsing packages, which take a universal program only. It answers as the service
   of an authorized Mac does, and says on its standard output what it was asked:

       velmor-guard run --port N
       velmor-guard id --json

   One connection at a time, as only the application comes. */
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

static const char identity[] = "{\"device_id\": \"GEN-rehearsal\"}\n";
static const char status[] = "{\"state\": \"authorized\", \"device_id\": \"GEN-rehearsal\"}\n";

enum { longest_request = 16384, patience = 2 /* seconds, for one that says nothing */ };

static int failed(const char* what) {
  fprintf(stderr, "velmor-guard: %s: %s\n", what, strerror(errno));
  return 1;
}

/* The head of a request, or as much of it as came. */
static void read_request(int connection, char* request) {
  size_t length = 0;
  request[0] = '\0';
  while (length < longest_request - 1) {
    const ssize_t count = read(connection, request + length, longest_request - 1 - length);
    if (count <= 0) return;
    length += (size_t)count;
    request[length] = '\0';
    if (strstr(request, "\r\n\r\n")) return;
  }
}

static void answer(int connection) {
  char request[longest_request];
  char head[128];
  read_request(connection, request);
  request[strcspn(request, "\r\n")] = '\0';
  printf("%s\n", request);
  fflush(stdout);
  const int is_known = strncmp(request, "GET /status.json ", 17) == 0;
  const char* body = is_known ? status : "";
  const int length = snprintf(head, sizeof head,
                              "HTTP/1.1 %s\r\nContent-Type: application/json\r\n"
                              "Content-Length: %zu\r\nConnection: close\r\n\r\n",
                              is_known ? "200 OK" : "404 Not Found", strlen(body));
  if (write(connection, head, (size_t)length) == length && is_known) {
    if (write(connection, body, strlen(body)) < 0) failed("write");
  }
}

static int run(unsigned short port) {
  const int reuse = 1;
  const struct timeval limit = {patience, 0};
  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);

  signal(SIGPIPE, SIG_IGN);
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  if (listener < 0) return failed("socket");
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  if (bind(listener, (struct sockaddr*)&address, sizeof address) < 0) return failed("bind");
  if (listen(listener, 16) < 0) return failed("listen");
  for (;;) {
    const int connection = accept(listener, NULL, NULL);
    if (connection < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      return failed("accept");
    }
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    answer(connection);
    close(connection);
  }
}

int main(int count, char** arguments) {
  if (count == 3 && strcmp(arguments[1], "id") == 0 && strcmp(arguments[2], "--json") == 0) {
    return fputs(identity, stdout) < 0 || fflush(stdout) != 0 ? failed("id") : 0;
  }
  if (count == 4 && strcmp(arguments[1], "run") == 0 && strcmp(arguments[2], "--port") == 0) {
    char* end = NULL;
    errno = 0;
    const long port = strtol(arguments[3], &end, 10);
    if (errno == 0 && end != arguments[3] && *end == '\0' && port >= 1 && port <= 65535) {
      return run((unsigned short)port);
    }
  }
  fputs("usage: velmor-guard run --port N | id --json\n", stderr);
  return 64;
}
