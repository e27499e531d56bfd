// Prints the key catalogue as JSON: every row of the module's key tables, in order,
// with its description. Fails when a key has no description or a description no key,
// so the catalogue cannot drift from the tables.
#include <jansson.h>
#include <stdio.h>
#include <string.h>

#include "module/key_docs.h"

namespace {

struct Walk {
  json_t* list;
  int missing;
};

void add_key(const char* call, const char* key, bool built, void* context) {
  Walk* walk = static_cast<Walk*>(context);
  const velconfig::KeyDoc* doc = velconfig::find_key_doc(call, key);
  if (doc == nullptr) {
    fprintf(stderr, "key_catalogue: %s \"%s\" has no description\n", call, key);
    ++walk->missing;
    return;
  }
  json_array_append_new(
      walk->list, json_pack("{s:s,s:s,s:b,s:s,s:s,s:b}", "call", call, "key", key, "built", built, "args",
                            doc->args, "fields", doc->answer, "changes", doc->changes));
}

}  // namespace

int main() {
  Walk walk = {json_array(), 0};
  velconfig::for_each_key(add_key, &walk);
  if (walk.missing != 0) return 1;
  char* text = json_dumps(walk.list, JSON_INDENT(1) | JSON_PRESERVE_ORDER);
  fputs(text, stdout);
  fputc('\n', stdout);
  free(text);
  json_decref(walk.list);
  return 0;
}
