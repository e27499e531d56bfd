// Prints the key catalogue as JSON: every row the dispatchers joined from the feature
// folders, get before set, each in comparison order, with its description and the
// explanation of each argument or field from tools/catalogue/fields.json:
//   key_catalogue FIELDS.json > keys.json
// A row without a description, a key that takes arguments or fields without their
// explanation, or an explanation of a key that does not exist fails the run, so the
// catalogue cannot go out of date.
#include <jansson.h>
#include <stdio.h>
#include <stdlib.h>

#include "module/dispatch.h"

namespace {

// The explanations of a key as [{"name": .., "text": ..}], from the file's [[name, text]].
json_t* explanations(json_t* pairs) {
  json_t* list = json_array();
  size_t i;
  json_t* pair;
  json_array_foreach(pairs, i, pair) {
    json_array_append_new(
        list, json_pack("{s:O,s:O}", "name", json_array_get(pair, 0), "text", json_array_get(pair, 1)));
  }
  return list;
}

template <class Row>
int add_rows(json_t* list, const char* call, std::pair<const Row*, size_t> rows, json_t* fields) {
  int missing = 0;
  for (size_t i = 0; i < rows.second; ++i) {
    const Row& row = rows.first[i];
    if (row.args == nullptr || row.answer == nullptr || row.answer[0] == '\0') {
      fprintf(stderr, "key_catalogue: %s \"%s\" has no description\n", call, row.key);
      ++missing;
      continue;
    }
    json_t* explained = json_object_get(fields, row.key);
    if (row.args[0] != '\0' && json_array_size(explained) == 0) {
      fprintf(stderr, "key_catalogue: %s \"%s\" takes \"%s\" but fields.json does not explain it\n", call,
              row.key, row.args);
      ++missing;
      continue;
    }
    json_array_append_new(list,
                          json_pack("{s:s,s:s,s:b,s:s,s:s,s:b,s:o}", "call", call, "key", row.key, "built",
                                    row.handler != nullptr, "args", row.args, "fields", row.answer, "changes",
                                    row.changes, "explain", explanations(explained)));
    json_object_del(fields, row.key);
  }
  const char* key;
  json_t* value;
  json_object_foreach(fields, key, value) {
    fprintf(stderr, "key_catalogue: fields.json explains %s \"%s\", which is no such key\n", call, key);
    ++missing;
  }
  return missing;
}

}  // namespace

int main(int argc, char** argv) {
  json_error_t error;
  json_t* fields = argc == 2 ? json_load_file(argv[1], 0, &error) : nullptr;
  if (fields == nullptr) {
    fprintf(stderr, "key_catalogue: usage: key_catalogue FIELDS.json (%s)\n",
            argc == 2 ? error.text : "no file");
    return 1;
  }
  json_t* list = json_array();
  int missing = add_rows(list, "get", velconfig::get_keys(), json_object_get(fields, "get")) +
                add_rows(list, "set", velconfig::set_keys(), json_object_get(fields, "set"));
  json_decref(fields);
  if (missing != 0) return 1;
  char* text = json_dumps(list, JSON_INDENT(1) | JSON_PRESERVE_ORDER);
  fputs(text, stdout);
  fputc('\n', stdout);
  free(text);
  json_decref(list);
  return 0;
}
