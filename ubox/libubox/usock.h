/* libubox's socket helper, as far as this module uses it (builds without libubox). */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define USOCK_TCP 0
#define USOCK_UDP 1
#define USOCK_SERVER 0x0100
#define USOCK_NOCLOEXEC 0x0200
#define USOCK_NONBLOCK 0x0400
#define USOCK_NUMERIC 0x0800
#define USOCK_IPV6ONLY 0x2000
#define USOCK_IPV4ONLY 0x4000

/* A socket connected (or, with USOCK_NONBLOCK, connecting: writable means done,
 * SO_ERROR tells how) to host:service, or listening there with USOCK_SERVER.
 * Negative on failure. */
int usock(int type, const char *host, const char *service);

#ifdef __cplusplus
}
#endif
