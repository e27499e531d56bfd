// Runs OpenWrt's uci (REAL_UCI, its path given at build time) on the simulator's file
// root instead of the system's files: -c <root>/etc/config, -t <root>/tmp/.uci and
// -C <root>/var/run/uci as absolute paths, the caller's arguments after them as they
// came. It takes the project's uci's place in the simulator's tools folder for the
// checks against the real one (tools/deps/real-uci-check.sh). The root is
// $VELCONFIG_ROOT, or the simulator's default when that is unset.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

int main(int argc, char** argv) {
  const char* given = getenv("VELCONFIG_ROOT");
  char fallback[64];
  snprintf(fallback, sizeof fallback, "/tmp/velconfig-root-%u", (unsigned)getuid());
  if (given == NULL || *given == '\0') given = fallback;
  char root[PATH_MAX];
  if (realpath(given, root) == NULL) {
    fprintf(stderr, "uci: no file root %s\n", given);
    return 1;
  }
  char conf[PATH_MAX + 16], save[PATH_MAX + 16], conf2[PATH_MAX + 16], tmp[PATH_MAX + 16];
  snprintf(conf, sizeof conf, "%s/etc/config", root);
  snprintf(save, sizeof save, "%s/tmp/.uci", root);
  snprintf(conf2, sizeof conf2, "%s/var/run/uci", root);
  // uci makes its save folder but not the folder above it; the gateway has its /tmp.
  snprintf(tmp, sizeof tmp, "%s/tmp", root);
  if (mkdir(tmp, 01777) != 0 && errno != EEXIST) {
    fprintf(stderr, "uci: cannot make %s\n", tmp);
    return 1;
  }
  char** args = calloc((size_t)argc + 7, sizeof *args);
  if (args == NULL) return 1;
  const char* lead[] = {"uci", "-c", conf, "-t", save, "-C", conf2};
  for (int i = 0; i < 7; ++i) args[i] = (char*)lead[i];
  for (int i = 1; i < argc; ++i) args[6 + i] = argv[i];
  execv(REAL_UCI, args);
  fprintf(stderr, "uci: cannot run %s: %s\n", REAL_UCI, strerror(errno));
  return 127;
}
