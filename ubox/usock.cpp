// usock for builds where libubox is absent: TCP or UDP, client or server, numeric
// or resolved addresses.
#include "libubox/usock.h"

#include <fcntl.h>
#include <netdb.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

int usock(int type, const char* host, const char* service) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_socktype = (type & 0xff) == USOCK_UDP ? SOCK_DGRAM : SOCK_STREAM;
  hints.ai_family = (type & USOCK_IPV4ONLY) ? AF_INET : (type & USOCK_IPV6ONLY) ? AF_INET6 : AF_UNSPEC;
  if (type & USOCK_SERVER) hints.ai_flags |= AI_PASSIVE;
  if (type & USOCK_NUMERIC) hints.ai_flags |= AI_NUMERICHOST | AI_NUMERICSERV;
  struct addrinfo* found = nullptr;
  if (getaddrinfo(host, service, &hints, &found) != 0) return -1;

  int sock = -1;
  for (struct addrinfo* a = found; a != nullptr; a = a->ai_next) {
    int flags = (type & USOCK_NOCLOEXEC) ? 0 : SOCK_CLOEXEC;
    if (type & USOCK_NONBLOCK) flags |= SOCK_NONBLOCK;
    sock = socket(a->ai_family, a->ai_socktype | flags, 0);
    if (sock < 0) continue;
    int rc;
    if (type & USOCK_SERVER) {
      int one = 1;
      setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
      rc = bind(sock, a->ai_addr, a->ai_addrlen);
      if (rc == 0 && hints.ai_socktype == SOCK_STREAM) rc = listen(sock, SOMAXCONN);
    } else {
      rc = connect(sock, a->ai_addr, a->ai_addrlen);
      if (rc != 0 && errno == EINPROGRESS) rc = 0;
    }
    if (rc == 0) break;
    close(sock);
    sock = -1;
  }
  freeaddrinfo(found);
  return sock;
}
