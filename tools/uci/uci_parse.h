// The OpenWrt configuration file format as our PC `uci` reads it: sections of
// options, with the file's own lines kept so that a commit rewrites only what
// changed. Usable on any buffer (a fuzzer feeds parse_config directly).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace uci {

struct Option {
  std::string name;
  bool is_list = false;
  std::vector<std::string> values;  // one for an option, one per line for a list
  std::vector<int> lines;           // the file's lines that hold it; empty when new
  bool changed = false;             // to be written anew at the commit
  bool deleted = false;
};

struct Section {
  std::string type;
  std::string name;  // empty for an anonymous section
  int line = -1;     // the "config" line; -1 when new
  int last_line = -1;
  bool type_changed = false;
  std::vector<Option> options;

  Option* find(std::string_view option);
};

struct Config {
  std::vector<std::string> lines;  // the file without its line feeds
  bool final_newline = true;
  std::vector<Section> sections;

  Section* find(std::string_view name);
  // The n-th section of a type, counting from the end when n is negative.
  Section* nth_of_type(std::string_view type, long n);
  // n >= 0 of a section within its type.
  long index_in_type(const Section* s) const;
};

struct ParseError {
  int line = 0;  // 1-based
  std::string reason;
};

// Splits one line into words as uci does: blanks separate, '...' is literal,
// "..." and unquoted text take backslash escapes, and '#' at a word's start or in
// an unquoted word begins a comment.
bool split_words(std::string_view line, std::vector<std::string>* words, std::string* reason);

// Parses a whole file. On failure error says where and why.
bool parse_config(std::string_view text, Config* out, ParseError* error);

// The file's text with every change applied: changed lines rewritten in place with
// their indentation, new options after their section's last line, new sections at
// the end, every other line byte for byte as it was.
std::string render_config(const Config& config);

// A value as uci writes it: single quotes, a quote inside as '\''.
std::string quote(std::string_view value);

// Names as uci accepts them: a package [A-Za-z0-9_-]+, a section or an option
// [A-Za-z0-9_]+, a section type [A-Za-z0-9_-]+.
bool valid_package(std::string_view name);
bool valid_name(std::string_view name);
bool valid_type(std::string_view type);

}  // namespace uci
