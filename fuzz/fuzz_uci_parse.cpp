// The PC uci tool's parser on any file: a parsed file renders back byte for byte,
// and a value written quoted parses back to itself.
#include <stdlib.h>

#include <string>

#include "fuzz/fuzz_input.h"
#include "tools/uci/uci_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::Input in(data, size);
  std::string value = in.text(128);
  std::string text = in.rest();
  uci::Config config;
  uci::ParseError error;
  if (uci::parse_config(text, &config, &error) && uci::render_config(config) != text) abort();

  if (value.find('\n') == std::string::npos && value.find('\0') == std::string::npos) {
    std::string line = "config t 's'\n\toption o " + uci::quote(value) + "\n";
    uci::Config quoted;
    if (!uci::parse_config(line, &quoted, &error)) abort();
    uci::Option* option = quoted.sections.empty() ? nullptr : quoted.sections[0].find("o");
    if (option == nullptr || option->values.size() != 1 || option->values[0] != value) abort();
  }
  return 0;
}
