// Reading and writing uci configuration files (see uci_parse.h).
#include "tools/uci/uci_parse.h"

#include <stdio.h>

namespace uci {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
bool is_alnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// uci's check: a name takes only [A-Za-z0-9_], anything else printable ASCII.
bool valid_string(std::string_view s, bool name) {
  if (s.empty()) return false;
  for (char ch : s) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (is_alnum(ch) || c == '_') continue;
    if (name || c < 33 || c > 126) return false;
  }
  return true;
}

// D. J. Bernstein's hash as uci takes it for anonymous names (over signed chars, as
// on the PC; the names are printable ASCII, where that makes no difference).
unsigned int djb_hash(unsigned int hash, const std::string& text) {
  if (hash == ~0U) hash = 5381;
  for (char c : text)
    hash = ((hash << 5) + hash) + static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(c)));
  return hash & 0x7FFFFFFF;
}

// The value inside its quotes: a quote becomes '\''.
std::string quoted_body(std::string_view value) {
  std::string out;
  for (char c : value) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

Option* Section::find(std::string_view option) {
  for (Option& o : options) {
    if (o.name == option) return &o;
  }
  return nullptr;
}

Section* Package::find(std::string_view name) {
  for (Section& s : sections) {
    if (s.name == name) return &s;
  }
  return nullptr;
}

Section* Package::nth_of_type(std::string_view type, long n) {
  std::vector<Section*> of_type;
  for (Section& s : sections) {
    if (type.empty() || s.type == type) of_type.push_back(&s);
  }
  long count = static_cast<long>(of_type.size());
  if (n < 0) n += count;
  if (n < 0 || n >= count) return nullptr;
  return of_type[static_cast<size_t>(n)];
}

long Package::index_in_type(const Section* s) const {
  long n = 0;
  for (const Section& other : sections) {
    if (&other == s) return n;
    if (other.type == s->type) ++n;
  }
  return -1;
}

Section* Package::add_section(std::string type, std::string name) {
  Section s;
  s.type = std::move(type);
  s.anonymous = name.empty();
  ++made;
  if (s.anonymous) {
    char made_name[32];
    snprintf(made_name, sizeof made_name, "cfg%02x%04x", static_cast<unsigned>(made),
             djb_hash(~0U, s.type) % (1U << 16));
    s.name = made_name;
  } else {
    s.name = std::move(name);
  }
  sections.push_back(std::move(s));
  return &sections.back();
}

void Package::set_option(Section* s, const std::string& name, const std::string& value) {
  Option* o = s->find(name);
  if (value.empty()) {
    if (o != nullptr) s->options.erase(s->options.begin() + (o - s->options.data()));
    return;
  }
  if (o == nullptr) {
    s->options.emplace_back();
    o = &s->options.back();
    o->name = name;
  }
  o->is_list = false;
  o->values.assign(1, value);
}

void Package::add_list_item(Section* s, const std::string& name, const std::string& value) {
  Option* o = s->find(name);
  if (o == nullptr) {
    s->options.emplace_back();
    o = &s->options.back();
    o->name = name;
  }
  o->is_list = true;
  o->values.push_back(value);
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

bool parse_config(std::string_view text, Package* out, ParseError* error) {
  *out = Package{};
  std::vector<std::string> words;
  Section* current = nullptr;
  int line = 0;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view content = text.substr(start, end - start);
    start = end + 1;
    ++line;
    auto fail = [&](std::string reason) {
      error->line = line;
      error->reason = std::move(reason);
      return false;
    };
    std::string reason;
    if (!split_words(content, &words, &reason)) return fail(reason);
    if (words.empty()) continue;
    const std::string& keyword = words[0];
    if (keyword == "package") {
      if (words.size() != 2) return fail("invalid package statement");
    } else if (keyword == "config") {
      if (words.size() < 2 || words.size() > 3) return fail("invalid section statement");
      if (!valid_type(words[1])) return fail("invalid character in type field");
      if (words.size() == 3 && !words[2].empty() && !valid_name(words[2]))
        return fail("invalid character in name field");
      std::string name = words.size() == 3 ? words[2] : "";
      Section* same = name.empty() ? nullptr : out->find(name);
      if (same != nullptr) {
        if (same->type != words[1])
          return fail("section of different type overwrites prior section with same name");
        current = same;
      } else {
        // the section pointer stays valid: options go into current until the next config
        current = out->add_section(words[1], name);
      }
    } else if (keyword == "option" || keyword == "list") {
      if (current == nullptr) return fail("option/list command found before the first section");
      if (words.size() != 3) return fail("invalid " + keyword + " statement");
      if (!valid_name(words[1])) return fail("invalid character in name field");
      if (keyword == "list") {
        Package::add_list_item(current, words[1], words[2]);
      } else {
        Package::set_option(current, words[1], words[2]);
      }
    } else {
      return fail("invalid command");
    }
  }
  return true;
}

std::string export_package(const Package& p, const std::string& name, bool header) {
  std::string out;
  if (header) out += "package " + name + "\n";
  for (const Section& s : p.sections) {
    out += "\nconfig " + quoted_body(s.type);
    if (!s.anonymous) out += " " + quote(s.name);
    out += "\n";
    for (const Option& o : s.options) {
      for (const std::string& v : o.values) {
        out += std::string(o.is_list ? "\tlist " : "\toption ") + quoted_body(o.name) + " " + quote(v) + "\n";
      }
    }
  }
  return out + "\n";
}

std::string quote(std::string_view value) { return "'" + quoted_body(value) + "'"; }

bool valid_package(std::string_view name) { return valid_string(name, false); }
bool valid_name(std::string_view name) { return valid_string(name, true); }
bool valid_type(std::string_view type) { return valid_string(type, false); }
bool valid_text(std::string_view text) {
  for (char ch : text) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c < 32 && c != '\t' && c != '\n' && c != '\r') return false;
  }
  return true;
}

}  // namespace uci
