// Checks of the ownership rule, the command runner and the simulator's seams, run
// outside any Lua call the way a C program calling the exported function runs.
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/plugin.h"
#include "platform/process.h"
#include "platform/seams.h"
#include "platform/zovel.h"
#include "sim/files.h"
#include "sim/sim.h"
#include "sim/transfers.h"
#include "tests/check.h"

namespace {

using namespace velconfig;

int open_descriptors() {
  int n = 0;
  DIR* d = opendir("/proc/self/fd");
  if (d == nullptr) return -1;
  while (readdir(d) != nullptr) ++n;
  closedir(d);
  return n;
}

// The process id a script wrote into path, or -1.
pid_t pid_in(const std::string& path) {
  gchar* text = nullptr;
  pid_t pid = -1;
  if (g_file_get_contents(path.c_str(), &text, nullptr, nullptr))
    pid = static_cast<pid_t>(strtol(text, nullptr, 10));
  g_free(text);
  return pid;
}

// Whether pid runs, waiting up to a second for a kill to take effect (a process
// reparented to an init that does not reap stays a zombie: that counts as ended).
bool running(pid_t pid) {
  for (int i = 0; pid > 0 && i < 100; ++i) {
    gchar* stat = nullptr;
    std::string path = "/proc/" + std::to_string(pid) + "/stat";
    if (!g_file_get_contents(path.c_str(), &stat, nullptr, nullptr)) return false;
    const char* state = strrchr(stat, ')');
    bool zombie = state != nullptr && state[1] == ' ' && state[2] == 'Z';
    g_free(stat);
    if (zombie) return false;
    g_usleep(10000);
  }
  return pid > 0;
}

void write_script(const std::string& path, const char* body) {
  FILE* f = fopen(path.c_str(), "w");
  CHECK(f != nullptr);
  if (f == nullptr) return;
  fprintf(f, "#!/bin/sh\n%s\n", body);
  CHECK(fclose(f) == 0);
  CHECK(chmod(path.c_str(), 0755) == 0);
}

// Everything kept is released by the end of the call, on every path.
void check_scope(const std::string& tools) {
  int fds = open_descriptors();
  size_t before = call_scope::size();
  for (int i = 0; i < 10000; ++i) {
    int32_t rc = guarded_c_call(-1, [&]() -> int32_t {
      PlatformList<ZoVelDdnsServer> servers;
      servers.fill(ZoVelGetDDNSServerObjs);
      ScopedVariant v(g_variant_ref_sink(g_variant_new_string("kept")));
      ScopedJson doc(json_loads("{\"a\":[1,2,3]}", 0, nullptr));
      ScopedText text(g_strdup("text"));
      int fd = dup(0);
      call_scope::keep_descriptor(fd);
      for (int j = 0; j < 40; ++j) ScopedText more(g_strdup_printf("%d", j));  // more than any fixed room
      if (i % 2 == 1) throw std::runtime_error("half-way");
      return servers.reported() >= 0 ? 0 : 1;
    });
    CHECK(rc == (i % 2 == 1 ? -1 : 0));
    if (rc != (i % 2 == 1 ? -1 : 0)) break;
  }
  CHECK(call_scope::size() == before);
  CHECK(open_descriptors() == fds);

  // Nested calls release only their own.
  guarded_c_call(-1, [&]() -> int32_t {
    ScopedText outer(g_strdup("outer"));
    size_t mark = call_scope::size();
    guarded_c_call(-1, [&]() -> int32_t {
      ScopedText inner(g_strdup("inner"));
      return 0;
    });
    CHECK(call_scope::size() == mark);
    CHECK(strcmp(outer.get(), "outer") == 0);
    return 0;
  });

  // A command cut off half-way is killed with what it started, and reaped with its
  // pipe closed, at the time-out.
  std::string started = tools + "/started.pid";
  write_script(tools + "/sleeper",
               ("sleep 30 & echo $! > " + started + "; echo started; exec sleep 30").c_str());
  for (int i = 0; i < 3; ++i) {
    guarded_c_call(-1, [&]() -> int32_t {
      const char* argv[] = {"sleeper", nullptr};
      char line[32];
      int64_t begun = monotonic_ms();
      CHECK(run_command_line(argv, line, sizeof line, 150) == kCommandFailed);
      CHECK(monotonic_ms() - begun < 2000);
      CHECK(strcmp(line, "started") == 0);
      CHECK(!running(pid_in(started)));
      return 0;
    });
  }
  CHECK(open_descriptors() == fds);
  CHECK(call_scope::size() == before);
}

void check_runner(const std::string& tools, const std::string& root) {
  char line[16];
  write_script(tools + "/uci", "echo \"$VELCONFIG_ROOT|$1|$2\"; exit 3");
  const char* with_blank[] = {"uci", "get", "a b;$(x)", nullptr};
  char long_line[512];
  CHECK(run_command_line(with_blank, long_line, sizeof long_line, 5000) == 3);
  CHECK(std::string(long_line) == root + "|get|a b;$(x)");  // arguments reach it untouched, no shell

  CHECK(run_command_line(with_blank, line, sizeof line, 5000) == 3);
  CHECK(strlen(line) == sizeof line - 1);  // cut, terminated

  write_script(tools + "/chatty", "printf 'first\\r\\nsecond\\n'; head -c 1048576 /dev/zero; exit 0");
  const char* chatty[] = {"chatty", nullptr};
  CHECK(run_command_line(chatty, line, sizeof line, 10000) == 0);
  CHECK(strcmp(line, "first") == 0);

  // Once the command has ended, what it left running with the pipe open does not
  // hold the call: what is in the pipe is read, and its status counts.
  std::string left = tools + "/left.pid";
  write_script(tools + "/leaver", ("sleep 30 & echo $! > " + left + "; echo done; exit 4").c_str());
  const char* leaver[] = {"leaver", nullptr};
  int64_t begun = monotonic_ms();
  CHECK(run_command_line(leaver, line, sizeof line, 10000) == 4);
  CHECK(monotonic_ms() - begun < 2000);
  CHECK(strcmp(line, "done") == 0);
  CHECK(pid_in(left) > 0 && kill(pid_in(left), SIGKILL) == 0);

  const char* missing[] = {"no-such-command-velconfig", nullptr};
  CHECK(run_command(missing, 1000) != 0);
  const char* empty[] = {nullptr};
  CHECK(run_command(empty, 1000) == kCommandFailed);

  // Found on PATH when the project has no tool of that name.
  const char* on_path[] = {"true", nullptr};
  CHECK(run_command(on_path, 5000) == 0);
}

void check_sim_seams(const std::string& root) {
  // Sleeping with the clock pinned moves the clock, not the test.
  velsim::pin_clock(1000);
  int64_t mono = monotonic_ms();
  sleep_seconds(5);
  CHECK(wall_clock_now() == 1005);
  CHECK(monotonic_ms() - mono >= 5000);

  char host[32];
  CHECK(cloud_client_host("192.168.1.1", host, sizeof host) && strcmp(host, "127.0.0.1") == 0);

  // Disk paths stay under the disk's folder in the file root.
  g_mkdir_with_parents((root + "/mnt/usb1_1/photos").c_str(), 0700);
  g_mkdir_with_parents((root + "/outside").c_str(), 0700);
  symlink((root + "/outside").c_str(), (root + "/mnt/usb1_1/escape").c_str());
  symlink("/etc", (root + "/mnt/usb1_1/etc").c_str());
  std::string out, reason;
  CHECK(velsim::relative_within("/mnt/usb1_1/photos/./new", "/mnt/usb1_1", &out) &&
        out == "mnt/usb1_1/photos/new");
  CHECK(!velsim::relative_within("/mnt/usb1_1/../../outside", "/mnt/usb1_1", &out));
  CHECK(!velsim::relative_within("/mnt/usb1_10/x", "/mnt/usb1_1", &out));
  CHECK(!velsim::relative_within("relative", "/mnt/usb1_1", &out));
  velsim::Fd top(velsim::open_file_root(&reason));
  CHECK(top.ok());
  velsim::Fd photos(velsim::open_beneath(top.get(), "mnt/usb1_1/photos", O_PATH | O_DIRECTORY));
  CHECK(photos.ok());
  // A link anywhere on the way, or at the end, is never followed.
  CHECK(velsim::open_beneath(top.get(), "mnt/usb1_1/escape/x", O_RDONLY) < 0);
  CHECK(velsim::open_beneath(top.get(), "mnt/usb1_1/etc/passwd", O_RDONLY) < 0);
  CHECK(velsim::open_beneath(top.get(), "mnt/usb1_1/etc", O_RDONLY) < 0);
  CHECK(velsim::open_beneath(photos.get(), "../../../outside", O_PATH) < 0);
  CHECK(!velsim::make_folders_beneath(top.get(), "mnt/usb1_1/escape/made", 0700));
  CHECK(!g_file_test((root + "/outside/made").c_str(), G_FILE_TEST_EXISTS));

  // A root another user could plant things in is refused, with the reason.
  chmod(root.c_str(), 0777);
  CHECK(velsim::open_file_root(&reason) < 0 && reason.find("writable by others") != std::string::npos);
  chmod(root.c_str(), 0700);
  std::string linked = root + "-link";
  CHECK(symlink(root.c_str(), linked.c_str()) == 0);
  velsim::set_file_root(linked);
  CHECK(velsim::open_file_root(&reason) < 0 && reason.find("symbolic link") != std::string::npos);
  unlink(linked.c_str());
  velsim::set_file_root(root);
}

void check_utf8_copy() {
  char out[6];
  CHECK(copy_utf8_text(out, sizeof out, "abc") && strcmp(out, "abc") == 0);
  CHECK(!copy_utf8_text(out, sizeof out, "abcd\xc3\xa9") && strcmp(out, "abcd") == 0);  // é not split
  CHECK(!copy_utf8_text(out, sizeof out,
                        "ab\xff"
                        "cd") &&
        strcmp(out, "ab") == 0);  // stops at bad byte
  CHECK(copy_utf8_text(out, sizeof out, "\xe4\xb8\xad") && strcmp(out, "\xe4\xb8\xad") == 0);
}

// Reply members are read only with their exact JSON type, and never past their room.
void check_json_fields() {
  json_t* doc =
      json_loads(R"({"Status":"0","real":1.0,"int":4294967297,"t":true,"long":"abcdefgh"})", 0, nullptr);
  int32_t n = 7;
  CHECK(read_json_int(doc, "Status", &n) == -1 && n == 7);
  CHECK(read_json_int(doc, "real", &n) == -1 && n == 7);
  CHECK(read_json_int(doc, "missing", &n) == -1 && n == 7);
  CHECK(read_json_int(doc, "int", &n) == 0 && n == 1);  // low 32 bits
  CHECK(read_json_field(doc, "t", JSON_TRUE, &n, sizeof n) == 0 && n == 1);
  CHECK(read_json_int(doc, "t", &n) == -1);
  char small[5] = {};
  CHECK(read_json_text(doc, "long", small) == 0 && strcmp(small, "abcd") == 0);
  json_decref(doc);

  char out[16];
  json_escape_text("plain-ssid", out, sizeof out);
  CHECK(strcmp(out, "plain-ssid") == 0);
  json_escape_text("a\"b\\\n", out, sizeof out);
  CHECK(strcmp(out, "a\\\"b\\\\\\u000a") == 0);
  json_escape_text("abcdefghijklmn\"", out, sizeof out);  // no half escape at the cut
  CHECK(strcmp(out, "abcdefghijklmn") == 0);
}

int threads() {
  int n = 0;
  DIR* d = opendir("/proc/self/task");
  if (d == nullptr) return -1;
  while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
  closedir(d);
  return n;
}

// The copy worker is joined when the simulator goes away, even with a copy pending
// (the pinned clock lets it copy nothing yet). Run last: no copy starts afterwards.
void check_copy_worker_joined(const std::string& root) {
  std::string source = root + "/copy-source";
  CHECK(g_file_set_contents(source.c_str(), "bytes", -1, nullptr));
  velsim::pin_clock(2000);
  json_object_set_new(velsim::object_at("storage"), "copy_rate", json_integer(1));
  int before = threads();
  std::string reason;
  velsim::Fd top(velsim::open_file_root(&reason));
  CHECK(velsim::start_transfer(top.get(), "copy-source", "copy-target", "/mnt/a", "/mnt/b") > 0);
  CHECK(threads() == before + 1);
  velsim::stop_copy_worker();
  int after = threads();
  for (int i = 0; i < 100 && after != before; ++i) {
    g_usleep(10000);
    after = threads();
  }
  CHECK(after == before);
}

}  // namespace

int main() {
  char dir_template[] = "/tmp/velconfig-ownership-XXXXXX";
  const char* dir = mkdtemp(dir_template);
  if (dir == nullptr) return 2;
  std::string tools = std::string(dir) + "/tools";
  std::string root = std::string(dir) + "/root";
  g_mkdir_with_parents(tools.c_str(), 0700);
  g_mkdir_with_parents(root.c_str(), 0700);
  velsim::set_tools_dir(tools);
  velsim::set_file_root(root);

  check_scope(tools);
  check_runner(tools, root);
  check_sim_seams(root);
  check_utf8_copy();
  check_json_fields();
  check_copy_worker_joined(root);

  const char* argv[] = {"rm", "-rf", dir, nullptr};
  run_command(argv, 10000);
  // The runner's checks above ran outside any call: end that scope as a call would.
  velconfig::call_scope::release_to(0);
  CHECK(velconfig::call_scope::size() == 0);
  if (velcheck::failures != 0) fprintf(stderr, "%d checks failed\n", velcheck::failures);
  return velcheck::failures == 0 ? 0 : 1;
}
