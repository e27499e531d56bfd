// `uci` for the PC: get, set, add, delete, rename, revert, commit, changes, show and
// export on the configuration files under $VELCONFIG_ROOT/etc/config, answering,
// failing and writing as OpenWrt's uci does, so the module runs the same commands on
// a PC as on the gateway (tests/real_uci compares the two command by command).
// Changes are staged in $VELCONFIG_ROOT/tmp/.uci/<config> in uci's own format until a
// commit writes them.
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tools/uci/uci_parse.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 255;

// uci's error codes ("uci add" exits with them) and their messages.
enum Error { kInvalid = 2, kNotFound = 3, kIo = 4, kParse = 5 };

const char* message(int code) {
  switch (code) {
    case kInvalid:
      return "Invalid argument";
    case kNotFound:
      return "Entry not found";
    case kIo:
      return "I/O error";
    case kParse:
      return "Parse error";
    default:
      return "Unknown error";
  }
}

bool quiet = false;

struct Failure {
  int code;
  std::string detail;  // what a parse error adds: " (reason) at line N"
};

[[noreturn]] void fail(int code, std::string detail = "") { throw Failure{code, std::move(detail)}; }

void report(const Failure& f) {
  if (!quiet) fprintf(stderr, "uci: %s%s\n", message(f.code), f.detail.c_str());
}

struct Paths {
  std::string config_dir;
  std::string save_dir;
  bool no_commit = false;
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
    fail(kIo, " (file root " + root + " is a link, not a folder, not yours or writable by others)");
  }
  return Paths{root + "/etc/config", root + "/tmp/.uci"};
}

// The kinds of staged change, marked as uci marks them at the start of the line.
enum Command { kAdd, kRemove, kChange, kRename, kReorder, kListAdd, kListDel };

Command command_of(char c) {
  switch (c) {
    case '+':
      return kAdd;
    case '-':
      return kRemove;
    case '@':
      return kRename;
    case '^':
      return kReorder;
    case '|':
      return kListAdd;
    case '~':
      return kListDel;
    default:
      return kChange;
  }
}

const char* mark_of(Command c) {
  switch (c) {
    case kAdd:
      return "+";
    case kRemove:
      return "-";
    case kRename:
      return "@";
    case kReorder:
      return "^";
    case kListAdd:
      return "|";
    case kListDel:
      return "~";
    default:
      return "";
  }
}

// "config[.section[.option]][=value]" as uci takes it apart, and what it names once
// looked up. A section that is not a plain name is "extended" (@type[n]).
struct Ptr {
  std::string package;
  std::string section;
  std::string option;
  std::string value;
  bool has_section = false;
  bool has_option = false;
  bool has_value = false;
  bool extended = false;
  uci::Section* s = nullptr;
  uci::Option* o = nullptr;
  bool complete = false;
};

Ptr parse_ptr(std::string_view text) {
  Ptr p;
  size_t eq = text.find('=');
  if (eq != std::string_view::npos) {
    p.has_value = true;
    p.value = std::string(text.substr(eq + 1));
    text = text.substr(0, eq);
  }
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    size_t dot = text.find('.', start);
    parts.emplace_back(
        text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  if (parts.size() > 3 || !uci::valid_package(parts[0])) fail(kParse);
  p.package = parts[0];
  if (parts.size() >= 2) {
    p.has_section = true;
    p.section = parts[1];
    p.extended = !uci::valid_name(p.section);
  }
  if (parts.size() == 3) {
    if (!uci::valid_name(parts[2])) fail(kParse);
    p.has_option = true;
    p.option = parts[2];
  }
  if (p.has_value && !uci::valid_text(p.value)) fail(kParse);
  return p;
}

// "@type[n]" (type may be empty: any type): the section, or null when there is none.
uci::Section* lookup_extended(uci::Package* package, const std::string& text) {
  if (text.empty() || text[0] != '@') fail(kInvalid);
  size_t open = text.find('[');
  if (open == std::string::npos) fail(kInvalid);
  size_t close = text.find(']', open);
  if (close == std::string::npos || close + 1 != text.size()) fail(kInvalid);
  std::string index = text.substr(open + 1, close - open - 1);
  char* end = nullptr;
  long n = strtol(index.c_str(), &end, 10);
  if (end != nullptr && *end != '\0') fail(kInvalid);
  std::string type = text.substr(1, open - 1);
  if (!type.empty() && !uci::valid_type(type)) fail(kInvalid);
  return package->nth_of_type(type, n);
}

// Resolves the section and option; a section found as @type[n] takes its name.
void lookup(uci::Package* package, Ptr* p) {
  p->s = nullptr;
  p->o = nullptr;
  p->complete = false;
  if (!p->has_section) {
    p->complete = true;
    return;
  }
  p->s = p->extended ? lookup_extended(package, p->section) : package->find(p->section);
  if (p->s == nullptr) return;
  p->section = p->s->name;
  if (p->has_option) {
    p->o = p->s->find(p->option);
    if (p->o == nullptr) return;
  }
  p->complete = true;
}

std::string change_line(Command c, const std::string& config, const Ptr& p, bool with_value) {
  std::string line = std::string(mark_of(c)) + config + "." + p.section;
  if (p.has_option) line += "." + p.option;
  if (with_value) line += "=" + uci::quote(p.value);
  return line;
}

// The changes a command makes: each applied to the package and noted for staging.
struct Changes {
  std::vector<std::string> lines;
  bool record;
};

// The number a text starts with (after blanks), as uci reads a list item's index:
// false when it starts with none.
bool leading_number(const std::string& text, int* out) {
  char* end = nullptr;
  long n = strtol(text.c_str(), &end, 10);
  if (end == text.c_str()) return false;
  *out = static_cast<int>(n);
  return true;
}

void remove_element(uci::Package* package, Ptr* p) {
  if (p->o != nullptr) {
    p->s->options.erase(p->s->options.begin() + (p->o - p->s->options.data()));
    p->o = nullptr;
  } else {
    package->sections.erase(package->sections.begin() + (p->s - package->sections.data()));
    p->s = nullptr;
  }
}

void op_delete(uci::Package* package, const std::string& config, Ptr* p, Changes* changes) {
  if (!p->complete) fail(kNotFound);
  if (p->s == nullptr) fail(kInvalid);
  if (p->o != nullptr && p->o->is_list && p->has_value && !p->value.empty()) {
    // one item of a list, by its index
    int index = 0;
    if (!leading_number(p->value, &index)) return;
    if (index >= 0 && static_cast<size_t>(index) < p->o->values.size()) {
      if (changes->record) changes->lines.push_back(change_line(kRemove, config, *p, true));
      p->o->values.erase(p->o->values.begin() + index);
      if (p->o->values.empty()) remove_element(package, p);
    }
    return;
  }
  if (changes->record) changes->lines.push_back(change_line(kRemove, config, *p, false));
  remove_element(package, p);
}

void op_set(uci::Package* package, const std::string& config, Ptr* p, Changes* changes) {
  if (!p->has_value) fail(kInvalid);
  if (p->s == nullptr && !(p->has_section && !p->has_option)) fail(kInvalid);
  if (!p->has_option && !p->value.empty() && !uci::valid_type(p->value)) fail(kInvalid);
  if (p->value.empty()) {
    // setting what does not exist to nothing is no change
    if (!p->complete) return;
    op_delete(package, config, p, changes);
    return;
  }
  if (p->has_option) {
    if (p->o != nullptr && !p->o->is_list && p->o->values[0] == p->value) return;
    uci::Package::set_option(p->s, p->option, p->value);
  } else if (p->s == nullptr) {
    p->s = package->add_section(p->value, p->section);
  } else {
    if (p->s->type == p->value) return;
    // uci makes the section anew under its name when the type's length changes, and
    // the section is no longer anonymous then
    if (p->s->type.size() != p->value.size()) p->s->anonymous = false;
    p->s->type = p->value;
  }
  if (changes->record) changes->lines.push_back(change_line(kChange, config, *p, true));
}

void op_rename(const std::string& config, Ptr* p, Changes* changes) {
  if (!p->complete) fail(kNotFound);
  if (p->s == nullptr || !p->has_value) fail(kInvalid);
  if (changes->record) changes->lines.push_back(change_line(kRename, config, *p, true));
  if (p->o != nullptr) {
    p->o->name = p->value;
  } else {
    p->s->name = p->value;
    p->s->anonymous = false;
  }
}

// A staged line taken apart as uci does; false for a line it would not take.
bool parse_change(const std::string& line, Command* command, Ptr* p) {
  std::vector<std::string> words;
  std::string reason;
  if (!uci::split_words(line, &words, &reason) || words.size() != 1) return false;
  std::string_view arg = words[0];
  *command = arg.empty() ? kChange : command_of(arg[0]);
  if (*command != kChange) arg.remove_prefix(1);
  try {
    *p = parse_ptr(arg);
  } catch (const Failure&) {
    return false;
  }
  if (!p->has_section || p->extended) return false;
  if (*command != kRemove && !p->has_value) return false;
  if (*command == kReorder && p->has_option) return false;
  if (*command == kRename && !uci::valid_name(p->value)) return false;
  if ((*command == kListAdd || *command == kListDel) && !p->has_option) return false;
  return true;
}

// Applies one staged line; false when it does not apply (uci skips such lines).
bool apply_change(uci::Package* package, const std::string& config, const std::string& line) {
  Command command;
  Ptr p;
  if (!parse_change(line, &command, &p) || p.package != config) return false;
  Changes none{{}, false};
  try {
    lookup(package, &p);
    switch (command) {
      case kReorder: {
        if (p.s == nullptr) return false;
        size_t to = std::min(static_cast<size_t>(strtoul(p.value.c_str(), nullptr, 10)),
                             package->sections.size() - 1);
        uci::Section moved = std::move(*p.s);
        package->sections.erase(package->sections.begin() + (p.s - package->sections.data()));
        package->sections.insert(package->sections.begin() + static_cast<long>(to), std::move(moved));
        break;
      }
      case kRename:
        op_rename(config, &p, &none);
        break;
      case kRemove:
        op_delete(package, config, &p, &none);
        break;
      case kListAdd:
        if (p.s == nullptr) return false;
        uci::Package::add_list_item(p.s, p.option, p.value);
        break;
      case kListDel:
        if (p.o != nullptr && p.o->is_list) {
          auto& v = p.o->values;
          v.erase(std::remove(v.begin(), v.end(), p.value), v.end());
          if (v.empty()) remove_element(package, &p);
        }
        break;
      case kAdd:
        op_set(package, config, &p, &none);
        if (!p.has_option && p.s != nullptr) p.s->anonymous = true;
        break;
      case kChange:
        op_set(package, config, &p, &none);
        break;
    }
  } catch (const Failure&) {
    return false;
  }
  return true;
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

// The staged changes of one configuration, locked for the life of the object: a
// command that changes something appends to it, commit empties it, revert rewrites it.
class Staged {
 public:
  // Opens and locks the staged changes when there are any.
  Staged(const Paths& paths, const std::string& config) : path_(paths.save_dir + "/" + config) {
    fd_ = open(path_.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
    if (fd_ < 0 && errno == ENOENT) return;
    if (fd_ < 0 || flock(fd_, LOCK_EX) != 0) fail(kIo);
  }
  ~Staged() {
    if (fd_ >= 0) close(fd_);
  }
  Staged(const Staged&) = delete;
  Staged& operator=(const Staged&) = delete;

  bool exists() const { return fd_ >= 0; }

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
  // Adds changes, making the file (and the folders above it, where uci would fail)
  // for the first ones.
  void append(const std::vector<std::string>& lines) {
    if (fd_ < 0) {
      make_dirs(path_.substr(0, path_.rfind('/')));
      fd_ = open(path_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
      if (fd_ < 0 || flock(fd_, LOCK_EX) != 0) fail(kIo);
    }
    std::string text;
    for (const std::string& l : lines) text += l + "\n";
    if (!write_all(fd_, text)) fail(kIo);
  }
  void clear() {
    if (fd_ >= 0 && ftruncate(fd_, 0) != 0) fail(kIo);
  }

 private:
  static void make_dirs(const std::string& dir) {
    for (size_t slash = dir.find('/', 1);; slash = dir.find('/', slash + 1)) {
      std::string part = dir.substr(0, slash);
      if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) fail(kIo);
      if (slash == std::string::npos) break;
    }
  }

  std::string path_;
  int fd_ = -1;
};

// The file as uci reads it; with staged, its changes applied.
uci::Package load(const Paths& paths, const std::string& name, const Staged* staged, int* applied = nullptr) {
  std::string text;
  if (!read_file(paths.config_dir + "/" + name, &text)) fail(kNotFound);
  uci::Package package;
  uci::ParseError error;
  if (!uci::parse_config(text, &package, &error)) {
    fail(kParse, " (" + error.reason + ") at line " + std::to_string(error.line));
  }
  int count = 0;
  if (staged != nullptr) {
    for (const std::string& line : staged->lines()) count += apply_change(&package, name, line) ? 1 : 0;
  }
  if (applied != nullptr) *applied = count;
  return package;
}

// Configurations in the folder, in name order: files whose name uci can address.
std::vector<std::string> list_configs(const Paths& paths) {
  glob_t found;
  std::string pattern = paths.config_dir + "/*";
  if (glob(pattern.c_str(), GLOB_MARK, nullptr, &found) != 0) fail(kNotFound);
  std::vector<std::string> names;
  for (size_t i = 0; i < found.gl_pathc; ++i) {
    std::string path = found.gl_pathv[i];
    std::string name = path.substr(path.rfind('/') + 1);
    if (!name.empty() && name.find('.') == std::string::npos && uci::valid_package(name))
      names.push_back(name);
  }
  globfree(&found);
  return names;
}

// Writes the configuration next to the old file and renames it over, so a reader
// sees the old file or the new one whole; the file keeps its mode.
void replace_file(const Paths& paths, const std::string& name, const std::string& text) {
  std::string path = paths.config_dir + "/" + name;
  char real[PATH_MAX];
  if (realpath(path.c_str(), real) == nullptr) fail(kIo);
  struct stat st;
  if (stat(real, &st) != 0) fail(kIo);
  std::string temp = paths.config_dir + "/." + name + ".uci-XXXXXX";
  std::vector<char> temp_name(temp.begin(), temp.end());
  temp_name.push_back('\0');
  int fd = mkstemp(temp_name.data());
  if (fd < 0) fail(kIo);
  bool ok = fchmod(fd, st.st_mode & 07777) == 0 && write_all(fd, text) && fsync(fd) == 0;
  ok = (close(fd) == 0) && ok && rename(temp_name.data(), real) == 0;
  if (!ok) {
    unlink(temp_name.data());
    fail(kIo);
  }
}

// Writes the staged changes into the file. Nothing is written, and nothing unstaged,
// when none of them applies.
void commit(const Paths& paths, const std::string& name) {
  if (paths.no_commit) return;
  Staged staged(paths, name);
  if (!staged.exists()) return;
  int applied = 0;
  uci::Package package = load(paths, name, &staged, &applied);
  if (applied == 0) return;
  replace_file(paths, name, uci::export_package(package, name, false));
  staged.clear();
}

// Drops the staged changes of a section (or of one of its options, or all of them
// when section is empty); the others are written back as uci writes them. A line
// uci cannot take leaves the whole file as it was.
void revert(Staged* staged, const std::string& name, const Ptr& p) {
  if (!staged->exists()) return;
  std::vector<std::string> kept;
  for (const std::string& line : staged->lines()) {
    Command command;
    Ptr change;
    if (!parse_change(line, &command, &change)) return;
    bool match = !p.has_section || change.section == p.section;
    if (match && p.has_option) match = change.has_option && change.option == p.option;
    if (!match) {
      change.package = name;
      kept.push_back(change_line(command, name, change, !(command == kRemove && !change.has_value)));
    }
  }
  staged->clear();
  if (!kept.empty()) staged->append(kept);
}

// A value as get shows it (items with blanks quoted) or as show does (all quoted).
std::string shown_value(const uci::Option& o, bool quoted) {
  if (!o.is_list) return quoted ? uci::quote(o.values[0]) : o.values[0];
  std::string out;
  for (const std::string& v : o.values) {
    if (!out.empty()) out += ' ';
    out += quoted || v.find_first_of(" \t\r\n") != std::string::npos ? uci::quote(v) : v;
  }
  return out;
}

void show_section(const std::string& config, const uci::Section& s, const std::string& label) {
  printf("%s.%s=%s\n", config.c_str(), label.c_str(), s.type.c_str());
  for (const uci::Option& o : s.options) {
    printf("%s.%s.%s=%s\n", config.c_str(), label.c_str(), o.name.c_str(), shown_value(o, true).c_str());
  }
}

void show_changes(const std::string& name, const Staged& staged) {
  for (const std::string& line : staged.lines()) {
    Command command;
    Ptr p;
    if (!parse_change(line, &command, &p) || p.package != name) continue;
    std::string out = (command == kRemove ? "-" : "") + name + "." + p.section;
    if (p.has_option) out += "." + p.option;
    if (command != kRemove) {
      out += command == kListAdd ? "+=" : command == kListDel ? "-=" : "=";
      out += uci::quote(p.value);
    }
    printf("%s\n", out.c_str());
  }
}

enum class Cmd { kGet, kSet, kDelete, kRename, kRevert, kShow, kExport, kCommit, kChanges };

// show, export, commit and changes on one configuration (what follows its name in
// the argument is looked up, but the whole configuration is taken).
int package_command(const Paths& paths, Cmd cmd, const std::string& arg) {
  try {
    Ptr p = parse_ptr(arg);
    if (cmd == Cmd::kCommit) {
      {
        Staged staged(paths, p.package);
        uci::Package package = load(paths, p.package, &staged);
        lookup(&package, &p);
      }
      commit(paths, p.package);
      return 0;
    }
    Staged staged(paths, p.package);
    uci::Package package = load(paths, p.package, &staged);
    lookup(&package, &p);
    if (cmd == Cmd::kExport) {
      fputs(uci::export_package(package, p.package, true).c_str(), stdout);
    } else if (cmd == Cmd::kChanges) {
      show_changes(p.package, staged);
    } else if (!p.complete) {
      fail(kNotFound);
    } else if (p.o != nullptr) {
      printf("%s.%s.%s=%s\n", p.package.c_str(), p.s->name.c_str(), p.o->name.c_str(),
             shown_value(*p.o, true).c_str());
    } else if (p.s != nullptr) {
      show_section(p.package, *p.s, p.s->name);
    } else {
      for (const uci::Section& s : package.sections) {
        std::string label =
            s.anonymous ? "@" + s.type + "[" + std::to_string(package.index_in_type(&s)) + "]" : s.name;
        show_section(p.package, s, label);
      }
    }
    return 0;
  } catch (const Failure& f) {
    report(f);
    return kFailed;
  }
}

// get, set, delete, rename and revert on one address.
int section_command(const Paths& paths, Cmd cmd, const std::string& arg) {
  try {
    Ptr p = parse_ptr(arg);
    bool changes_something = cmd == Cmd::kSet || cmd == Cmd::kDelete || cmd == Cmd::kRename;
    // A line feed would split the staged line, and this uci reads a value on one line.
    if (changes_something && p.value.find('\n') != std::string::npos) fail(kInvalid);
    Staged staged(paths, p.package);
    uci::Package package = load(paths, p.package, &staged);
    lookup(&package, &p);
    if (p.has_value && !changes_something) return kFailed;
    Changes changes{{}, true};
    switch (cmd) {
      case Cmd::kGet:
        if (!p.complete) fail(kNotFound);
        if (p.o != nullptr) {
          printf("%s\n", shown_value(*p.o, false).c_str());
        } else if (p.s != nullptr) {
          printf("%s\n", p.s->type.c_str());
        }
        return 0;
      case Cmd::kRevert:
        revert(&staged, p.package, p);
        return 0;
      case Cmd::kSet:
        op_set(&package, p.package, &p, &changes);
        break;
      case Cmd::kRename:
        op_rename(p.package, &p, &changes);
        break;
      case Cmd::kDelete: {
        int index = 0;
        if (p.has_value && !leading_number(p.value, &index)) return kFailed;
        op_delete(&package, p.package, &p, &changes);
        break;
      }
      default:
        break;
    }
    if (!changes.lines.empty()) staged.append(changes.lines);
    return 0;
  } catch (const Failure& f) {
    report(f);
    return kFailed;
  }
}

// "add <config> <type>": a new anonymous section; prints its name. Exits with uci's
// error code when it fails.
int add_command(const Paths& paths, const std::string& config, const std::string& type) {
  try {
    if (!uci::valid_package(config)) fail(kInvalid);
    Staged staged(paths, config);
    uci::Package package = load(paths, config, &staged);
    uci::Section* s = package.add_section(type, "");
    Ptr p;
    p.section = s->name;
    p.value = type;
    staged.append({change_line(kAdd, config, p, true)});
    printf("%s\n", s->name.c_str());
    return 0;
  } catch (const Failure& f) {
    report(f);
    return f.code;
  }
}

void usage() {
  fprintf(stderr,
          "Usage: uci [<options>] <command> [<arguments>]\n\n"
          "Commands:\n"
          "\texport     [<config>]\n"
          "\tchanges    [<config>]\n"
          "\tcommit     [<config>]\n"
          "\tadd        <config> <section-type>\n"
          "\tshow       [<config>[.<section>[.<option>]]]\n"
          "\tget        <config>.<section>[.<option>]\n"
          "\tset        <config>.<section>[.<option>]=<value>\n"
          "\tdelete     <config>[.<section>[[.<option>][=<id>]]]\n"
          "\trename     <config>.<section>[.<option>]=<name>\n"
          "\trevert     <config>[.<section>[.<option>]]\n\n"
          "Options:\n"
          "\t-c <path>  set the search path for config files (default: $VELCONFIG_ROOT/etc/config)\n"
          "\t-C <path>  set the search path for config override files (not used here)\n"
          "\t-P <path>  add a search path for config change files and use as default\n"
          "\t-t <path>  set save path for config change files (default: $VELCONFIG_ROOT/tmp/.uci)\n"
          "\t-q         quiet mode (don't print error messages)\n");
}

bool named(const char* word, const char* a, const char* b = nullptr) {
  return strcasecmp(word, a) == 0 || (b != nullptr && strcasecmp(word, b) == 0);
}

int run(int argc, char** argv) {
  Paths paths = default_paths();
  int i = 1;
  for (; i < argc && argv[i][0] == '-' && argv[i][1] != '\0'; ++i) {
    std::string_view opt = argv[i];
    if (opt == "-q") {
      quiet = true;
    } else if ((opt == "-c" || opt == "-t" || opt == "-P" || opt == "-C") && i + 1 < argc) {
      const char* dir = argv[++i];
      if (opt == "-c") paths.config_dir = dir;
      if (opt == "-t" || opt == "-P") paths.save_dir = dir;
      if (opt == "-P") paths.no_commit = true;
    } else {
      usage();
      return 0;
    }
  }
  if (i == argc) {
    usage();
    return 0;
  }
  const char* word = argv[i++];
  int rest = argc - i;
  Cmd cmd;
  if (named(word, "add")) {
    if (rest != 2) {
      usage();
      return kUsage;
    }
    return add_command(paths, argv[i], argv[i + 1]);
  }
  if (named(word, "show") || named(word, "export") || named(word, "commit") || named(word, "changes")) {
    cmd = named(word, "show")     ? Cmd::kShow
          : named(word, "export") ? Cmd::kExport
          : named(word, "commit") ? Cmd::kCommit
                                  : Cmd::kChanges;
    if (rest > 1) {
      usage();
      return kUsage;
    }
    if (rest == 1) return package_command(paths, cmd, argv[i]);
    std::vector<std::string> names;
    try {
      names = list_configs(paths);
    } catch (const Failure& f) {
      report(f);
      return kFailed;
    }
    for (const std::string& name : names) package_command(paths, cmd, name);
    return 0;
  }
  if (named(word, "get")) {
    cmd = Cmd::kGet;
  } else if (named(word, "set")) {
    cmd = Cmd::kSet;
  } else if (named(word, "delete", "del")) {
    cmd = Cmd::kDelete;
  } else if (named(word, "rename", "ren")) {
    cmd = Cmd::kRename;
  } else if (named(word, "revert")) {
    cmd = Cmd::kRevert;
  } else {
    usage();
    return kUsage;
  }
  if (rest != 1) {
    usage();
    return kUsage;
  }
  return section_command(paths, cmd, argv[i]);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    if (!quiet) fprintf(stderr, "uci: %s\n", e.what());
    return kFailed;
  } catch (...) {
    return kFailed;
  }
}
