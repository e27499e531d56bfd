// ZoVelDBus* over the registered properties.
#include "sim/dbus.h"

#include <string.h>

#include <string>
#include <vector>

#include "platform/zovel.h"
#include "sim/sim.h"

namespace velsim {
namespace {

std::vector<Property>& registry() {
  static std::vector<Property> properties;
  return properties;
}

bool path_matches(const Property& p, const char* path) {
  size_t n = strlen(p.path);
  if (n > 0 && p.path[n - 1] == '/') return strncmp(p.path, path, n) == 0 && path[n] != '\0';
  return strcmp(p.path, path) == 0;
}

const Property* find(const char* service, const char* path, const char* interface, const char* name) {
  if (service == nullptr || path == nullptr || interface == nullptr || name == nullptr) return nullptr;
  for (const Property& p : registry()) {
    if (strcmp(p.service, service) == 0 && strcmp(p.interface, interface) == 0 && strcmp(p.name, name) == 0 &&
        path_matches(p, path)) {
      return &p;
    }
  }
  return nullptr;
}

struct Answer {
  std::string path, interface, name;
  GVariant* value;  // null: no value
};

std::vector<Answer>& answers() {
  static std::vector<Answer> list;
  return list;
}

const Answer* answer_for(const char* path, const char* interface, const char* name) {
  if (path == nullptr || interface == nullptr || name == nullptr) return nullptr;
  for (const Answer& a : answers()) {
    if (a.interface == interface && a.name == name && strncmp(path, a.path.c_str(), a.path.size()) == 0)
      return &a;
  }
  return nullptr;
}

std::vector<WriteCheck>& write_checks() {
  static std::vector<WriteCheck>* c = new std::vector<WriteCheck>;
  return *c;
}

// The registered judgement of a write on interface: 0 when it may be kept.
int32_t judge_write(const char* interface, const char* path) {
  for (const WriteCheck& c : write_checks()) {
    if (g_strcmp0(c.interface, interface) == 0) return c.check(path);
  }
  return 0;
}

// Puts the model back as before was (a copy taken before a refused write).
void restore_model(json_t* before) {
  json_object_clear(model());
  json_object_update(model(), before);
}

json_t* where(const char* service, const char* path, const char* interface) {
  return json_pack("{s:s?,s:s?,s:s?}", "service", service, "path", path, "interface", interface);
}

}  // namespace

PropertyTable::PropertyTable(std::initializer_list<Property> properties) {
  for (const Property& p : properties) registry().push_back(p);
}

WriteCheckTable::WriteCheckTable(std::initializer_list<WriteCheck> checks) {
  for (const WriteCheck& c : checks) write_checks().push_back(c);
}

void answer_property(const char* path, const char* interface, const char* name, GVariant* value) {
  GVariant* held = value != nullptr ? g_variant_ref_sink(value) : nullptr;
  answers().insert(answers().begin(), Answer{path, interface, name, held});
}

void clear_property_answer(const char* path, const char* interface, const char* name) {
  auto& list = answers();
  for (auto it = list.begin(); it != list.end();) {
    if (it->path == path && it->interface == interface && it->name == name) {
      if (it->value != nullptr) g_variant_unref(it->value);
      it = list.erase(it);
    } else {
      ++it;
    }
  }
}

void clear_property_answers() {
  for (Answer& a : answers()) {
    if (a.value != nullptr) g_variant_unref(a.value);
  }
  answers().clear();
}

json_t* variant_to_json(GVariant* v) {
  if (v == nullptr) return json_null();
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_BOOLEAN)) return json_boolean(g_variant_get_boolean(v));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_STRING)) return json_string(g_variant_get_string(v, nullptr));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_BYTE)) return json_integer(g_variant_get_byte(v));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_INT32)) return json_integer(g_variant_get_int32(v));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_UINT32)) return json_integer(g_variant_get_uint32(v));
  if (g_variant_is_of_type(v, G_VARIANT_TYPE_VARIANT)) {
    GVariant* inner = g_variant_get_variant(v);
    json_t* j = variant_to_json(inner);
    g_variant_unref(inner);
    return j;
  }
  gchar* printed = g_variant_print(v, TRUE);
  json_t* j = json_string(printed);
  g_free(printed);
  return j;
}

}  // namespace velsim

using velsim::operation;

extern "C" int32_t ZoVelDBusGetProperty(const char* service, const char* path, const char* interface,
                                        const char* property, GVariant** value) {
  json_t* args = velsim::where(service, path, interface);
  json_object_set_new(args, "property", json_string(property != nullptr ? property : ""));
  return operation("ZoVelDBusGetProperty", args, [&]() -> int32_t {
    if (const velsim::Answer* a = velsim::answer_for(path, interface, property)) {
      *value = a->value != nullptr ? g_variant_ref(a->value) : nullptr;
      return 0;
    }
    const velsim::Property* p = velsim::find(service, path, interface, property);
    if (p == nullptr) return velsim::kNoSuchProperty;
    GVariant* v = velsim::hostile_value(p->get(path));
    if (v == nullptr) return velsim::kNoSuchObject;
    *value = g_variant_ref_sink(v);
    return 0;
  });
}

extern "C" int32_t ZoVelDBusGetAllProperty(const char* service, const char* path, const char* interface,
                                           GVariant** value) {
  return operation("ZoVelDBusGetAllProperty", velsim::where(service, path, interface), [&]() -> int32_t {
    if (service == nullptr || path == nullptr || interface == nullptr) return velsim::kNoSuchProperty;
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
    int found = 0;
    for (const velsim::Property& p : velsim::registry()) {
      if (strcmp(p.service, service) != 0 || strcmp(p.interface, interface) != 0 ||
          !velsim::path_matches(p, path)) {
        continue;
      }
      GVariant* v = p.get(path);
      if (v == nullptr) continue;
      g_variant_builder_add(&builder, "{sv}", p.name, v);
      ++found;
    }
    GVariant* dict = g_variant_builder_end(&builder);
    if (found == 0) {
      g_variant_unref(g_variant_ref_sink(dict));
      return velsim::kNoSuchObject;
    }
    if (velsim::hostile() == velsim::Hostile::kWrongTypes) {
      // Not a dictionary at all.
      g_variant_unref(g_variant_ref_sink(dict));
      const char* const words[] = {"wrong", "type"};
      dict = g_variant_new_strv(words, 2);
    }
    *value = g_variant_ref_sink(dict);
    return 0;
  });
}

extern "C" int32_t ZoVelDBusSetProperty(const char* service, const char* path, const char* interface,
                                        const char* property, GVariant* value) {
  // The write consumes a floating value, whatever happens to it.
  GVariant* held = value != nullptr ? g_variant_ref_sink(value) : nullptr;
  json_t* args = velsim::where(service, path, interface);
  json_object_set_new(args, "property", json_string(property != nullptr ? property : ""));
  json_object_set_new(args, "value", velsim::variant_to_json(held));
  int32_t code = operation("ZoVelDBusSetProperty", args, [&]() -> int32_t {
    const velsim::Property* p = velsim::find(service, path, interface, property);
    if (p == nullptr) return velsim::kNoSuchProperty;
    if (p->set == nullptr) return velsim::kReadOnly;
    if (held == nullptr) return velsim::kWrongType;
    json_t* before = json_deep_copy(velsim::model());
    int32_t rc = p->set(path, held);
    if (rc == 0) rc = velsim::judge_write(interface, path);
    if (rc != 0) velsim::restore_model(before);
    json_decref(before);
    if (rc == 0) velsim::model_changed();
    return rc;
  });
  if (held != nullptr) g_variant_unref(held);
  return code;
}

extern "C" int32_t ZoVelDBusSetMultiProperty(const char* service, const char* path, const char* interface,
                                             GVariant* dictionary) {
  json_t* args = velsim::where(service, path, interface);
  json_t* entries = json_array();
  bool is_dict = dictionary != nullptr && g_variant_is_of_type(dictionary, G_VARIANT_TYPE("a{sv}"));
  if (is_dict) {
    GVariantIter iter;
    const char* name;
    GVariant* v;
    g_variant_iter_init(&iter, dictionary);
    while (g_variant_iter_loop(&iter, "{&sv}", &name, &v)) {
      json_array_append_new(entries, json_pack("[s,o]", name, velsim::variant_to_json(v)));
    }
  }
  json_object_set_new(args, "entries", entries);
  return operation("ZoVelDBusSetMultiProperty", args, [&]() -> int32_t {
    if (!is_dict) return velsim::kWrongType;
    // Check every entry first, so that a refused write changes nothing.
    GVariantIter iter;
    const char* name;
    GVariant* v;
    g_variant_iter_init(&iter, dictionary);
    while (g_variant_iter_loop(&iter, "{&sv}", &name, &v)) {
      const velsim::Property* p = velsim::find(service, path, interface, name);
      if (p == nullptr) {
        g_variant_unref(v);
        return velsim::kNoSuchProperty;
      }
      if (p->set == nullptr) {
        g_variant_unref(v);
        return velsim::kReadOnly;
      }
    }
    // A value of the wrong type shows only when it is applied: undo what came before.
    json_t* before = json_deep_copy(velsim::model());
    int32_t code = 0;
    g_variant_iter_init(&iter, dictionary);
    while (code == 0 && g_variant_iter_next(&iter, "{&sv}", &name, &v)) {
      code = velsim::find(service, path, interface, name)->set(path, v);
      g_variant_unref(v);
    }
    if (code == 0) code = velsim::judge_write(interface, path);
    if (code != 0) velsim::restore_model(before);
    json_decref(before);
    if (code == 0) velsim::model_changed();
    return code;
  });
}
