// The hostile platform profile: answers that break the platform's conventions in
// one way at a time, so tests can check that no key crashes, hangs or overruns.
#include <string.h>

#include <string>

#include "sim/sim.h"

namespace velsim {
namespace {

Hostile current = Hostile::kNone;

constexpr size_t kHugeBytes = 1 << 20;
constexpr int kDeepLevels = 10000;

std::string repeated(const std::string& piece, size_t bytes) {
  std::string unit = piece.empty() ? "x" : piece;
  std::string out;
  out.reserve(bytes + unit.size());
  while (out.size() < bytes) out += unit;
  return out;
}

}  // namespace

Hostile hostile() { return current; }
void set_hostile(Hostile h) { current = h; }

bool set_hostile(const char* name) {
  static const struct {
    const char* name;
    Hostile profile;
  } kNames[] = {{"none", Hostile::kNone},
                {"count-1", Hostile::kCountMinusOne},
                {"count-huge", Hostile::kCountHuge},
                {"array-absent", Hostile::kArrayAbsent},
                {"unterminated", Hostile::kUnterminated},
                {"wrong-types", Hostile::kWrongTypes},
                {"huge-replies", Hostile::kHugeReplies},
                {"deep-json", Hostile::kDeepJson},
                {"count-on-failure", Hostile::kCountOnFailure}};
  for (const auto& n : kNames) {
    if (name != nullptr && strcmp(name, n.name) == 0) {
      current = n.profile;
      return true;
    }
  }
  return false;
}

bool hostile_text(char** text) {
  if (text == nullptr || *text == nullptr) return false;
  std::string replaced;
  if (current == Hostile::kHugeReplies) {
    // A JSON reply keeps its members, each text grown to 1 MB; any other text is
    // repeated to 1 MB.
    json_t* doc = json_loads(*text, 0, nullptr);
    if (json_is_object(doc)) {
      const char* key;
      json_t* value;
      json_object_foreach(doc, key, value) {
        if (json_is_string(value))
          json_string_set(value, repeated(json_string_value(value), kHugeBytes).c_str());
      }
      json_object_set_new(doc, "padding", json_string(repeated("p", kHugeBytes).c_str()));
      char* dumped = json_dumps(doc, JSON_COMPACT);
      replaced = dumped != nullptr ? dumped : "";
      free(dumped);
    } else {
      replaced = repeated(*text, kHugeBytes);
    }
    json_decref(doc);
  } else if (current == Hostile::kDeepJson) {
    replaced = "{\"Status\":" + std::string(kDeepLevels, '[') + std::string(kDeepLevels, ']') + "}";
  } else {
    return false;
  }
  g_free(*text);
  *text = g_strdup(replaced.c_str());
  return true;
}

GVariant* hostile_value(GVariant* value) {
  if (current != Hostile::kWrongTypes || value == nullptr) return value;
  GVariant* wrong = g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) ? g_variant_new_int32(7)
                                                                       : g_variant_new_string("wrong type");
  g_variant_unref(g_variant_ref_sink(value));
  return wrong;
}

}  // namespace velsim
