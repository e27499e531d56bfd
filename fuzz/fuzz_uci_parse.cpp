// The PC uci tool's parser on any file: what a commit would write parses back to
// the same configuration, and a value written quoted parses back to itself.
#include <stdlib.h>

#include <string>

#include "fuzz/fuzz_input.h"
#include "tools/uci/uci_parse.h"

static bool written_bare(const uci::Package& p) {
  for (const uci::Section& s : p.sections) {
    if (s.type.find_first_of("'\"\\#") != std::string::npos) return false;
  }
  return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::Input in(data, size);
  std::string value = in.text(128);
  std::string text = in.rest();
  uci::Package package;
  uci::ParseError error;
  // uci writes types and option names bare: one holding a quote, a backslash or a
  // '#' does not read back (OpenWrt's uci alike), so those are left out.
  if (uci::parse_config(text, &package, &error) && written_bare(package)) {
    std::string written = uci::export_package(package, "p", false);
    uci::Package again;
    if (!uci::parse_config(written, &again, &error) || uci::export_package(again, "p", false) != written)
      abort();
  }

  if (!value.empty() && value.find('\n') == std::string::npos && value.find('\0') == std::string::npos) {
    std::string line = "config t 's'\n\toption o " + uci::quote(value) + "\n";
    uci::Package quoted;
    if (!uci::parse_config(line, &quoted, &error)) abort();
    uci::Option* option = quoted.sections.empty() ? nullptr : quoted.sections[0].find("o");
    if (option == nullptr || option->values.size() != 1 || option->values[0] != value) abort();
  }
  return 0;
}
