// Prints the key catalogue as JSON: every row the dispatchers joined from the feature
// folders, get before set, each in comparison order, with its description. A row
// without a description fails the run, so the catalogue cannot go out of date.
#include <jansson.h>
#include <stdio.h>
#include <stdlib.h>

#include "module/dispatch.h"

namespace {

template <class Row>
int add_rows(json_t* list, const char* call, std::pair<const Row*, size_t> rows) {
  int missing = 0;
  for (size_t i = 0; i < rows.second; ++i) {
    const Row& row = rows.first[i];
    if (row.args == nullptr || row.answer == nullptr || row.answer[0] == '\0') {
      fprintf(stderr, "key_catalogue: %s \"%s\" has no description\n", call, row.key);
      ++missing;
      continue;
    }
    json_array_append_new(list, json_pack("{s:s,s:s,s:b,s:s,s:s,s:b}", "call", call, "key", row.key, "built",
                                          row.handler != nullptr, "args", row.args, "fields", row.answer,
                                          "changes", row.changes));
  }
  return missing;
}

}  // namespace

int main() {
  json_t* list = json_array();
  int missing = add_rows(list, "get", velconfig::get_keys()) + add_rows(list, "set", velconfig::set_keys());
  if (missing != 0) return 1;
  char* text = json_dumps(list, JSON_INDENT(1) | JSON_PRESERVE_ORDER);
  fputs(text, stdout);
  fputc('\n', stdout);
  free(text);
  json_decref(list);
  return 0;
}
