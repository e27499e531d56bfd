// Reading and rewriting uci configuration files (see uci_parse.h).
#include "tools/uci/uci_parse.h"

#include <algorithm>

namespace uci {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
bool is_alnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

bool all_of(std::string_view s, bool dash) {
  if (s.empty()) return false;
  return std::all_of(s.begin(), s.end(),
                     [dash](char c) { return is_alnum(c) || c == '_' || (dash && c == '-'); });
}

std::string indent_of(const std::string& line) {
  size_t n = 0;
  while (n < line.size() && is_blank(line[n])) ++n;
  return line.substr(0, n);
}

std::string option_lines(const Option& o, const std::string& indent) {
  std::string out;
  for (size_t i = 0; i < o.values.size(); ++i) {
    if (i > 0) out += '\n';
    out += indent + (o.is_list ? "list " : "option ") + o.name + ' ' + quote(o.values[i]);
  }
  return out;
}

std::string header_line(const Section& s, const std::string& indent) {
  std::string out = indent + "config " + s.type;
  if (!s.name.empty()) out += " " + quote(s.name);
  return out;
}

}  // namespace

Option* Section::find(std::string_view option) {
  for (Option& o : options) {
    if (!o.deleted && o.name == option) return &o;
  }
  return nullptr;
}

Section* Config::find(std::string_view name) {
  for (Section& s : sections) {
    if (!s.name.empty() && s.name == name) return &s;
  }
  return nullptr;
}

Section* Config::nth_of_type(std::string_view type, long n) {
  std::vector<Section*> of_type;
  for (Section& s : sections) {
    if (s.type == type) of_type.push_back(&s);
  }
  long count = static_cast<long>(of_type.size());
  if (n < 0) n += count;
  if (n < 0 || n >= count) return nullptr;
  return of_type[static_cast<size_t>(n)];
}

long Config::index_in_type(const Section* s) const {
  long n = 0;
  for (const Section& other : sections) {
    if (&other == s) return n;
    if (other.type == s->type) ++n;
  }
  return -1;
}

bool split_words(std::string_view line, std::vector<std::string>* words, std::string* reason) {
  words->clear();
  size_t i = 0;
  while (true) {
    while (i < line.size() && is_blank(line[i])) ++i;
    if (i == line.size() || line[i] == '#') return true;
    std::string word;
    while (i < line.size() && !is_blank(line[i]) && line[i] != '#') {
      char c = line[i++];
      if (c == '\'') {
        size_t end = line.find('\'', i);
        if (end == std::string_view::npos) {
          *reason = "unterminated '";
          return false;
        }
        word.append(line.substr(i, end - i));
        i = end + 1;
      } else if (c == '"') {
        while (true) {
          if (i == line.size()) {
            *reason = "unterminated \"";
            return false;
          }
          char d = line[i++];
          if (d == '"') break;
          if (d == '\\' && i < line.size()) d = line[i++];
          word += d;
        }
      } else if (c == '\\') {
        if (i == line.size()) {
          *reason = "unfinished escape";
          return false;
        }
        word += line[i++];
      } else {
        word += c;
      }
    }
    words->push_back(std::move(word));
  }
}

bool parse_config(std::string_view text, Config* out, ParseError* error) {
  *out = Config{};
  out->final_newline = text.empty() || text.back() == '\n';
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    out->lines.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }

  std::vector<std::string> words;
  size_t current = 0;  // the section that option and list lines belong to
  for (size_t n = 0; n < out->lines.size(); ++n) {
    int line = static_cast<int>(n);
    auto fail = [&](std::string reason) {
      error->line = line + 1;
      error->reason = std::move(reason);
      return false;
    };
    std::string reason;
    if (!split_words(out->lines[n], &words, &reason)) return fail(reason);
    if (words.empty()) continue;
    const std::string& keyword = words[0];
    if (keyword == "package") {
      if (words.size() != 2) return fail("invalid package statement");
    } else if (keyword == "config") {
      if (words.size() < 2 || words.size() > 3) return fail("invalid section statement");
      if (!valid_type(words[1])) return fail("invalid section type");
      if (words.size() == 3 && !valid_name(words[2])) return fail("invalid section name");
      Section s;
      s.type = words[1];
      s.name = words.size() == 3 ? words[2] : "";
      s.line = s.last_line = line;
      // A section named twice is one section, as uci merges them.
      Section* same = s.name.empty() ? nullptr : out->find(s.name);
      if (same != nullptr) {
        same->type = s.type;
        same->last_line = line;
        current = static_cast<size_t>(same - out->sections.data());
      } else {
        current = out->sections.size();
        out->sections.push_back(std::move(s));
      }
    } else if (keyword == "option" || keyword == "list") {
      if (out->sections.empty()) return fail("option/list command found before the first section");
      if (words.size() != 3) return fail("invalid " + keyword + " statement");
      if (!valid_name(words[1])) return fail("invalid option name");
      Section& s = out->sections[current];
      s.last_line = line;
      bool is_list = keyword == "list";
      Option* o = s.find(words[1]);
      if (o != nullptr && is_list && o->is_list) {
        o->values.push_back(words[2]);
        o->lines.push_back(line);
      } else {
        // A later option or list of the same name replaces the earlier one.
        if (o != nullptr) o->deleted = true;
        Option fresh;
        fresh.name = words[1];
        fresh.is_list = is_list;
        fresh.values.push_back(words[2]);
        fresh.lines.push_back(line);
        s.options.push_back(std::move(fresh));
      }
    } else {
      return fail("invalid command");
    }
  }
  // Replaced duplicates keep their lines in the file but are no longer options.
  for (Section& s : out->sections) {
    s.options.erase(
        std::remove_if(s.options.begin(), s.options.end(), [](const Option& o) { return o.deleted; }),
        s.options.end());
  }
  return true;
}

std::string render_config(const Config& config) {
  size_t count = config.lines.size();
  std::vector<std::string> text(config.lines.begin(), config.lines.end());
  std::vector<bool> dropped(count, false);
  std::vector<std::string> after(count);
  std::string tail;

  for (const Section& s : config.sections) {
    if (s.line < 0) {
      tail += "\n" + header_line(s, "") + "\n";
      for (const Option& o : s.options) {
        if (!o.deleted) tail += option_lines(o, "\t") + "\n";
      }
      continue;
    }
    if (s.type_changed) text[s.line] = header_line(s, indent_of(config.lines[s.line]));
    for (const Option& o : s.options) {
      if (!o.deleted && !o.changed) continue;
      for (int l : o.lines) dropped[l] = true;
      if (o.deleted) continue;
      if (o.lines.empty()) {
        after[s.last_line] += option_lines(o, "\t") + "\n";
      } else {
        dropped[o.lines[0]] = false;
        text[o.lines[0]] = option_lines(o, indent_of(config.lines[o.lines[0]]));
      }
    }
  }

  std::string out;
  for (size_t i = 0; i < count; ++i) {
    if (!dropped[i]) {
      out += text[i];
      if (i + 1 < count || config.final_newline || !after[i].empty()) out += '\n';
    }
    out += after[i];
  }
  if (!tail.empty() && !out.empty() && out.back() != '\n') out += '\n';
  return out + tail;
}

std::string quote(std::string_view value) {
  std::string out = "'";
  for (char c : value) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

bool valid_package(std::string_view name) { return all_of(name, true); }
bool valid_name(std::string_view name) { return all_of(name, false); }
bool valid_type(std::string_view type) { return all_of(type, true); }

}  // namespace uci
