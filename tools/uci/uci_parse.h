// The OpenWrt configuration file format as our PC `uci` reads and writes it, with
// OpenWrt's uci's rules: a section named twice is one section (of one type), a later option
// replaces an earlier one in its place, a list line after an option turns it into a
// list, an empty option is no option, and an anonymous section is named
// "cfg<NN><HHHH>" (its ordinal among the sections made, then a hash of its type).
// Usable on any buffer (a fuzzer feeds parse_config directly).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace uci {

struct Option {
  std::string name;
  bool is_list = false;
  std::vector<std::string> values;  // one for an option, one per item for a list
};

struct Section {
  std::string type;
  std::string name;
  bool anonymous = false;
  std::vector<Option> options;

  Option* find(std::string_view option);
};

struct Package {
  std::vector<Section> sections;
  int made = 0;  // sections made so far, counted into anonymous names

  Section* find(std::string_view name);
  // The n-th section of a type (of any type when type is empty), counting from the
  // end when n is negative.
  Section* nth_of_type(std::string_view type, long n);
  // The section's index among those of its type.
  long index_in_type(const Section* s) const;

  // A new section at the end: named, or anonymous (name empty) with its made name.
  Section* add_section(std::string type, std::string name);
  // Sets an option's value in its place, or adds it at the section's end; an empty
  // value removes it.
  static void set_option(Section* s, const std::string& name, const std::string& value);
  // Adds an item to a list (an option turns into a list in its place).
  static void add_list_item(Section* s, const std::string& name, const std::string& value);
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
bool parse_config(std::string_view text, Package* out, ParseError* error);

// The package as uci writes it: with header the "package <name>" line first (export),
// without it the file a commit writes.
std::string export_package(const Package& p, const std::string& name, bool header);

// A value as uci writes it: single quotes, a quote inside as '\''.
std::string quote(std::string_view value);

// Names as uci accepts them: a package or a section type is printable ASCII without
// blanks, a section or an option name [A-Za-z0-9_]; text has no control characters
// but tab, line feed and carriage return.
bool valid_package(std::string_view name);
bool valid_name(std::string_view name);
bool valid_type(std::string_view type);
bool valid_text(std::string_view text);

}  // namespace uci
