// slow_clients PORT N PATH: opens N connections to 127.0.0.1:PORT that each send half
// a request and then stall, then sends one whole GET of PATH and prints the status
// line it gets and how long it took. Exits 1 when no answer came within 5 seconds.
// slow_clients PORT trickle: sends a request's header one line every 200 ms, never
// ending it, and prints how long the server kept the connection (at most 30 s).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <vector>

namespace {

int connect_loopback(int port) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

double now_ms() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

}  // namespace

// The trickling client: true when the server closed the connection.
int trickle(int port) {
  int fd = connect_loopback(port);
  if (fd < 0) return 1;
  double start = now_ms();
  static const char kFirst[] = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  bool open = send(fd, kFirst, sizeof kFirst - 1, MSG_NOSIGNAL) > 0;
  for (int line = 0; open && now_ms() - start < 30000; ++line) {
    struct pollfd wait = {fd, POLLIN, 0};
    if (poll(&wait, 1, 200) == 1) {
      char byte;
      open = read(fd, &byte, 1) > 0;
      continue;
    }
    char text[32];
    int length = snprintf(text, sizeof text, "X-Line-%d: x\r\n", line);
    open = send(fd, text, static_cast<size_t>(length), MSG_NOSIGNAL) == length;
  }
  close(fd);
  printf("%s after %.0f ms\n", open ? "still open" : "closed", now_ms() - start);
  return open ? 1 : 0;
}

int main(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[2], "trickle") == 0)
    return trickle(static_cast<int>(strtol(argv[1], nullptr, 10)));
  if (argc != 4) {
    fprintf(stderr, "usage: slow_clients PORT N PATH\n");
    return 2;
  }
  int port = static_cast<int>(strtol(argv[1], nullptr, 10));
  int count = static_cast<int>(strtol(argv[2], nullptr, 10));
  std::vector<int> stalled;
  static const char kHalf[] = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: ";
  for (int i = 0; i < count; ++i) {
    int fd = connect_loopback(port);
    if (fd < 0) break;
    if (write(fd, kHalf, sizeof kHalf - 1) < 0) {
      close(fd);
      break;
    }
    stalled.push_back(fd);
  }
  printf("stalled %zu\n", stalled.size());
  // Give the server a moment to take in every stalled connection first.
  usleep(300 * 1000);

  double start = now_ms();
  int fd = connect_loopback(port);
  char request[512];
  int length = snprintf(request, sizeof request,
                        "GET %s HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nConnection: close\r\n\r\n", argv[3], port);
  char status[64] = "";
  if (fd >= 0 && write(fd, request, static_cast<size_t>(length)) == length) {
    struct pollfd wait = {fd, POLLIN, 0};
    if (poll(&wait, 1, 5000) == 1) {
      ssize_t got = read(fd, status, sizeof status - 1);
      status[got > 0 ? got : 0] = '\0';
      status[strcspn(status, "\r\n")] = '\0';
    }
  }
  double took = now_ms() - start;
  if (fd >= 0) close(fd);
  for (int s : stalled) close(s);
  if (status[0] == '\0') {
    printf("no answer after %.0f ms\n", took);
    return 1;
  }
  printf("%s after %.0f ms\n", status, took);
  return 0;
}
