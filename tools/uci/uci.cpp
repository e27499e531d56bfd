// `uci` for the PC: get, set, commit and show on the configuration files under
// $VELCONFIG_ROOT/etc/config, answering and failing as OpenWrt's uci does, so the
// module runs the same commands on a PC as on the gateway. Changes made with set
// are staged in $VELCONFIG_ROOT/tmp/.uci/<config> until a commit writes them.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tools/uci/uci_parse.h"

namespace {

// uci's exit statuses: 1 for a failed command, 255 for a usage error.
constexpr int kFailed = 1;
constexpr int kUsage = 255;

bool quiet = false;

// Failures travel as the message uci prints ("Entry not found", ...).
struct Failure {
  std::string message;
};

[[noreturn]] void fail(std::string message) { throw Failure{std::move(message)}; }

struct Paths {
  std::string config_dir;
  std::string save_dir;
};

// The simulated gateway's file root, as the simulator chooses it: VELCONFIG_ROOT,
// else the root beside the state file (VELCONFIG_SIM_STATE, else the user's default
// gateway in $XDG_STATE_HOME/velconfig, ~/.local/state without it). A root another
// user could plant files or links in is refused, as the simulator refuses it.
Paths default_paths() {
  const char* env = getenv("VELCONFIG_ROOT");
  std::string root;
  if (env != nullptr && *env != '\0') {
    root = env;
  } else {
    const char* state = getenv("VELCONFIG_SIM_STATE");
    std::string file;
    if (state != nullptr && *state != '\0') {
      file = state;
    } else {
      const char* xdg = getenv("XDG_STATE_HOME");
      const char* home = getenv("HOME");
      std::string base =
          xdg != nullptr && xdg[0] == '/' ? xdg : std::string(home != nullptr ? home : "") + "/.local/state";
      file = base + "/velconfig/gateway.json";
    }
    if (file.size() > 5 && file.compare(file.size() - 5, 5, ".json") == 0) file.resize(file.size() - 5);
    root = file + ".root";
  }
  struct stat st;
  if (lstat(root.c_str(), &st) == 0 &&
      (!S_ISDIR(st.st_mode) || st.st_uid != geteuid() || (st.st_mode & (S_IWGRP | S_IWOTH)) != 0)) {
    fail("file root " + root + " is a link, not a folder, not yours or writable by others");
  }
  return Paths{root + "/etc/config", root + "/tmp/.uci"};
}

// "config", "config.section" or "config.section.option", a section given by name
// or as @type[n]; value is what follows the first '='.
struct Address {
  std::string config;
  std::string section;  // empty when absent
  std::string type;     // for @type[n]
  long index = 0;
  bool by_type = false;
  std::string option;
  bool has_value = false;
  std::string value;
};

bool parse_index(std::string_view text, long* out) {
  if (text.empty() || text.size() > 9) return false;
  size_t i = text[0] == '-' ? 1 : 0;
  if (i == text.size()) return false;
  long n = 0;
  for (; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    n = n * 10 + (text[i] - '0');
  }
  *out = text[0] == '-' ? -n : n;
  return true;
}

Address parse_address(std::string_view text) {
  Address a;
  size_t eq = text.find('=');
  if (eq != std::string_view::npos) {
    a.has_value = true;
    a.value = std::string(text.substr(eq + 1));
    text = text.substr(0, eq);
  }
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (true) {
    size_t dot = text.find('.', start);
    parts.push_back(text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  if (parts.size() > 3 || !uci::valid_package(parts[0])) fail("Invalid argument");
  a.config = std::string(parts[0]);
  if (parts.size() >= 2) {
    std::string_view s = parts[1];
    if (!s.empty() && s[0] == '@') {
      size_t open = s.find('[');
      if (open == std::string_view::npos || s.back() != ']' || !uci::valid_type(s.substr(1, open - 1)) ||
          !parse_index(s.substr(open + 1, s.size() - open - 2), &a.index)) {
        fail("Invalid argument");
      }
      a.by_type = true;
      a.type = std::string(s.substr(1, open - 1));
    } else if (!uci::valid_name(s)) {
      fail("Invalid argument");
    }
    a.section = std::string(s);
  }
  if (parts.size() == 3) {
    if (!uci::valid_name(parts[2])) fail("Invalid argument");
    a.option = std::string(parts[2]);
  }
  return a;
}

bool read_file(const std::string& path, std::string* text) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  char buffer[4096];
  size_t n;
  text->clear();
  while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) text->append(buffer, n);
  bool ok = !ferror(f);
  (void)fclose(f);  // opened for reading: closing cannot lose anything
  return ok;
}

bool write_all(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

// The staged changes of one configuration, open and locked for the life of the
// object: set appends to it, commit empties it, get reads it.
class Delta {
 public:
  Delta(const Paths& paths, const std::string& config, bool create) {
    std::string path = paths.save_dir + "/" + config;
    if (create) {
      make_dirs(paths.save_dir);
      fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    } else {
      fd_ = open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
      if (fd_ < 0 && errno == ENOENT) return;
    }
    if (fd_ < 0 || flock(fd_, LOCK_EX) != 0) fail("I/O error");
  }
  ~Delta() {
    if (fd_ >= 0) close(fd_);
  }
  Delta(const Delta&) = delete;
  Delta& operator=(const Delta&) = delete;

  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    if (fd_ < 0) return out;
    std::string text;
    char buffer[4096];
    ssize_t n;
    off_t at = 0;
    while ((n = pread(fd_, buffer, sizeof buffer, at)) > 0) {
      text.append(buffer, static_cast<size_t>(n));
      at += n;
    }
    size_t start = 0;
    while (start < text.size()) {
      size_t end = text.find('\n', start);
      if (end == std::string::npos) end = text.size();
      if (end > start) out.push_back(text.substr(start, end - start));
      start = end + 1;
    }
    return out;
  }
  void append(const std::string& line) {
    if (!write_all(fd_, line + "\n")) fail("I/O error");
  }
  void clear() {
    if (fd_ >= 0 && ftruncate(fd_, 0) != 0) fail("I/O error");
  }

 private:
  static void make_dirs(const std::string& dir) {
    for (size_t slash = dir.find('/', 1);; slash = dir.find('/', slash + 1)) {
      std::string part = dir.substr(0, slash);
      if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) fail("I/O error");
      if (slash == std::string::npos) break;
    }
  }

  int fd_ = -1;
};

uci::Section* find_section(uci::Config* config, const Address& a) {
  return a.by_type ? config->nth_of_type(a.type, a.index) : config->find(a.section);
}

// Applies one staged or requested change; the address must name a section.
void apply(uci::Config* config, const Address& a, bool remove) {
  uci::Section* s = find_section(config, a);
  if (a.option.empty()) {
    if (remove || a.value.empty() || !uci::valid_type(a.value)) fail("Invalid argument");
    if (s != nullptr) {
      if (s->type != a.value) s->type_changed = true;
      s->type = a.value;
      return;
    }
    if (a.by_type) fail("Entry not found");
    uci::Section fresh;
    fresh.type = a.value;
    fresh.name = a.section;
    config->sections.push_back(std::move(fresh));
    return;
  }
  if (s == nullptr) fail("Entry not found");
  uci::Option* o = s->find(a.option);
  // An empty value deletes the option, as uci's set does.
  if (remove || a.value.empty()) {
    if (o != nullptr) o->deleted = true;
    return;
  }
  if (o == nullptr) {
    s->options.emplace_back();
    o = &s->options.back();
    o->name = a.option;
  }
  o->is_list = false;
  o->values.assign(1, a.value);
  o->changed = true;
}

// A staged line: "config.section.option='value'", "config.section='type'" or
// "-config.section.option".
void apply_staged(uci::Config* config, const std::string& line) {
  bool remove = !line.empty() && line[0] == '-';
  std::string_view text = line;
  if (remove) text.remove_prefix(1);
  size_t eq = text.find('=');
  Address a = parse_address(text.substr(0, eq));
  if (eq != std::string_view::npos) {
    std::vector<std::string> words;
    std::string reason;
    if (!uci::split_words(text.substr(eq + 1), &words, &reason) || words.size() != 1) fail("Parse error");
    a.has_value = true;
    a.value = words[0];
  }
  apply(config, a, remove);
}

// The file with the staged changes applied.
uci::Config load(const Paths& paths, const std::string& name, const Delta& delta) {
  std::string text;
  if (!read_file(paths.config_dir + "/" + name, &text)) fail("Entry not found");
  uci::Config config;
  uci::ParseError error;
  if (!uci::parse_config(text, &config, &error)) {
    fail("Parse error (" + error.reason + ") at line " + std::to_string(error.line));
  }
  for (const std::string& line : delta.lines()) apply_staged(&config, line);
  return config;
}

std::string section_label(const uci::Config& config, const uci::Section& s) {
  if (!s.name.empty()) return s.name;
  return "@" + s.type + "[" + std::to_string(config.index_in_type(&s)) + "]";
}

std::string joined(const uci::Option& o, bool quoted) {
  std::string out;
  for (const std::string& v : o.values) {
    if (!out.empty()) out += ' ';
    out += quoted ? uci::quote(v) : v;
  }
  return out;
}

int command_get(const Paths& paths, const std::string& arg) {
  Address a = parse_address(arg);
  if (a.has_value) return kFailed;
  Delta delta(paths, a.config, false);
  uci::Config config = load(paths, a.config, delta);
  if (a.section.empty()) return 0;
  uci::Section* s = find_section(&config, a);
  if (s == nullptr) fail("Entry not found");
  if (a.option.empty()) {
    printf("%s\n", s->type.c_str());
    return 0;
  }
  uci::Option* o = s->find(a.option);
  if (o == nullptr) fail("Entry not found");
  printf("%s\n", joined(*o, false).c_str());
  return 0;
}

int command_set(const Paths& paths, const std::string& arg) {
  Address a = parse_address(arg);
  // A line feed would split the staged line; the files hold a value on one line.
  if (!a.has_value || a.section.empty() || a.value.find('\n') != std::string::npos) fail("Invalid argument");
  if (access((paths.config_dir + "/" + a.config).c_str(), F_OK) != 0) fail("Entry not found");
  Delta delta(paths, a.config, true);
  uci::Config config = load(paths, a.config, delta);
  // Staged with the section as it is found now, so a negative index stays put.
  std::string section = a.section;
  if (a.by_type) {
    uci::Section* s = find_section(&config, a);
    if (s == nullptr) fail("Entry not found");
    section = "@" + a.type + "[" + std::to_string(config.index_in_type(s)) + "]";
  }
  apply(&config, a, false);
  std::string target = a.config + "." + section + (a.option.empty() ? "" : "." + a.option);
  if (!a.option.empty() && a.value.empty()) {
    delta.append("-" + target);
  } else {
    delta.append(target + "=" + uci::quote(a.value));
  }
  return 0;
}

// Writes the configuration next to the old file and renames it over, so a reader
// sees the old file or the new one whole; the file keeps its mode.
void replace_file(const std::string& path, const std::string& text) {
  struct stat st;
  mode_t mode = stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0644;
  std::string dir = path.substr(0, path.rfind('/'));
  std::string temp = dir + "/.uci-" + path.substr(path.rfind('/') + 1) + "-XXXXXX";
  std::vector<char> name(temp.begin(), temp.end());
  name.push_back('\0');
  int fd = mkstemp(name.data());
  if (fd < 0) fail("I/O error");
  bool ok = fchmod(fd, mode) == 0 && write_all(fd, text) && fsync(fd) == 0;
  ok = (close(fd) == 0) && ok && rename(name.data(), path.c_str()) == 0;
  if (!ok) {
    unlink(name.data());
    fail("I/O error");
  }
}

// Named on the command line, a configuration must exist even with nothing staged.
void commit_one(const Paths& paths, const std::string& name, bool named) {
  Delta delta(paths, name, false);
  if (delta.lines().empty()) {
    if (named && access((paths.config_dir + "/" + name).c_str(), F_OK) != 0) fail("Entry not found");
    return;
  }
  uci::Config config = load(paths, name, delta);
  replace_file(paths.config_dir + "/" + name, uci::render_config(config));
  delta.clear();
}

int command_commit(const Paths& paths, const char* arg) {
  if (arg != nullptr) {
    if (!uci::valid_package(arg)) fail("Invalid argument");
    commit_one(paths, arg, true);
    return 0;
  }
  DIR* dir = opendir(paths.save_dir.c_str());
  if (dir == nullptr) return 0;
  std::vector<std::string> names;
  while (dirent* e = readdir(dir)) {
    if (uci::valid_package(e->d_name)) names.push_back(e->d_name);
  }
  closedir(dir);
  for (const std::string& name : names) commit_one(paths, name, false);
  return 0;
}

void show_config(const Paths& paths, const std::string& name, const Address* only) {
  Delta delta(paths, name, false);
  uci::Config config = load(paths, name, delta);
  uci::Section* wanted = nullptr;
  if (only != nullptr && !only->section.empty()) {
    wanted = find_section(&config, *only);
    if (wanted == nullptr) fail("Entry not found");
    if (!only->option.empty() && wanted->find(only->option) == nullptr) fail("Entry not found");
  }
  for (uci::Section& s : config.sections) {
    if (wanted != nullptr && &s != wanted) continue;
    std::string prefix = name + "." + section_label(config, s);
    if (only == nullptr || only->option.empty()) printf("%s=%s\n", prefix.c_str(), s.type.c_str());
    for (const uci::Option& o : s.options) {
      if (o.deleted || (only != nullptr && !only->option.empty() && o.name != only->option)) continue;
      printf("%s.%s=%s\n", prefix.c_str(), o.name.c_str(), joined(o, true).c_str());
    }
  }
}

int command_show(const Paths& paths, const char* arg) {
  if (arg != nullptr) {
    Address a = parse_address(arg);
    if (a.has_value) fail("Invalid argument");
    show_config(paths, a.config, &a);
    return 0;
  }
  DIR* dir = opendir(paths.config_dir.c_str());
  if (dir == nullptr) return 0;
  std::vector<std::string> names;
  while (dirent* e = readdir(dir)) {
    if (uci::valid_package(e->d_name)) names.push_back(e->d_name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) show_config(paths, name, nullptr);
  return 0;
}

int usage() {
  fprintf(stderr,
          "Usage: uci [<options>] <command> [<arguments>]\n\n"
          "Commands:\n"
          "\tcommit     [<config>]\n"
          "\tshow       [<config>[.<section>[.<option>]]]\n"
          "\tget        <config>.<section>[.<option>]\n"
          "\tset        <config>.<section>[.<option>]=<value>\n\n"
          "Options:\n"
          "\t-c <path>  set the search path for config files (default: $VELCONFIG_ROOT/etc/config)\n"
          "\t-P <path>  set the path for staged changes (default: $VELCONFIG_ROOT/tmp/.uci)\n"
          "\t-q         quiet mode (don't print error messages)\n");
  return kUsage;
}

int run(int argc, char** argv) {
  Paths paths = default_paths();
  int i = 1;
  for (; i < argc && argv[i][0] == '-' && argv[i][1] != '\0'; ++i) {
    std::string_view opt = argv[i];
    if (opt == "-q") {
      quiet = true;
    } else if ((opt == "-c" || opt == "-P") && i + 1 < argc) {
      (opt == "-c" ? paths.config_dir : paths.save_dir) = argv[++i];
    } else {
      return usage();
    }
  }
  if (i == argc) return usage();
  std::string_view command = argv[i++];
  int rest = argc - i;
  if (command == "get" && rest == 1) return command_get(paths, argv[i]);
  if (command == "set" && rest == 1) return command_set(paths, argv[i]);
  if (command == "commit" && rest <= 1) return command_commit(paths, rest == 1 ? argv[i] : nullptr);
  if (command == "show" && rest <= 1) return command_show(paths, rest == 1 ? argv[i] : nullptr);
  return usage();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const Failure& f) {
    (void)fflush(stdout);  // best effort: the exit status already reports the failure
    if (!quiet) fprintf(stderr, "uci: %s\n", f.message.c_str());
    return kFailed;
  } catch (const std::exception& e) {
    if (!quiet) fprintf(stderr, "uci: %s\n", e.what());
    return kFailed;
  }
}
