// The simulated D-Bus objects: each property is a getter and setter over the model,
// so a write shows in every record that carries the same fact.
#pragma once

#include <glib.h>
#include <jansson.h>
#include <stdint.h>

#include <initializer_list>

namespace velsim {

struct Property {
  const char* service;
  // An exact object path, or a prefix ending in "/" that covers every instance below.
  const char* path;
  const char* interface;
  const char* name;
  // A new value, or null when the object at path does not exist.
  GVariant* (*get)(const char* path);
  // 0 on success; null for a read-only property.
  int32_t (*set)(const char* path, GVariant* value);
};

// Registers properties at start-up: `static PropertyTable t{{...}, {...}};`.
struct PropertyTable {
  PropertyTable(std::initializer_list<Property> properties);
};

// A judgement of an object's properties taken together (a DHCP pool inside the LAN),
// made after a write has applied its values and before it is kept: non-zero refuses
// the write, which is then undone whole.
struct WriteCheck {
  const char* interface;
  int32_t (*check)(const char* path);
};
struct WriteCheckTable {
  WriteCheckTable(std::initializer_list<WriteCheck> checks);
};

// Makes a property read on interface and name (any service, any path starting with
// path) succeed with value instead of the model's: a value of any type (taken
// over), or null for a read that succeeds without a value. Tests use it for
// replies the model cannot give.
void answer_property(const char* path, const char* interface, const char* name, GVariant* value);
void clear_property_answer(const char* path, const char* interface, const char* name);
void clear_property_answers();

// JSON form of a basic GVariant, as the journal shows it.
json_t* variant_to_json(GVariant* value);

// Results the simulated D-Bus layer gives.
constexpr int32_t kNoSuchProperty = -1;
constexpr int32_t kReadOnly = -2;
constexpr int32_t kWrongType = -3;
constexpr int32_t kNoSuchObject = -4;

}  // namespace velsim
