// D-Bus properties through the platform library: typed reads that treat a value
// of another type as unreadable, and "a{sv}" writes whose members keep their order.
#pragma once

#include <glib.h>
#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "platform/holders.h"

namespace velconfig {

constexpr const char* kIgdService = "com.zom.igd1";
constexpr const char* kSafService = "com.zom.saf1";
constexpr const char* kMeshService = "com.brimvale.easymesh1";

// One object's interface on a service.
struct DBusObject {
  const char* service;
  const char* path;
  const char* interface;
};

// How a property read ended: the platform refused it (a non-zero result), it
// answered without a value of the type asked for, or the value came back.
enum class PropertyRead { kFailed, kNoValue, kValue };

// The property's value when it can be read and is of type; otherwise an empty
// handle, and *outcome (when given) tells a failed read from one without a value.
// The value stays in the call scope until the call ends.
ScopedVariant read_property(const DBusObject& object, const char* name, const GVariantType* type,
                            PropertyRead* outcome = nullptr);

// A text property cut at a whole character into out (cap bytes); out is untouched
// unless the value came back.
PropertyRead read_text_property(const DBusObject& object, const char* name, char* out, size_t cap);
// Typed reads: true when a value of the type came back; false (out untouched) when
// the read failed or yielded no value, which every page using them treats alike.
bool read_bool_property(const DBusObject& object, const char* name, bool* out);
bool read_uint32_property(const DBusObject& object, const char* name, uint32_t* out);
bool read_int32_property(const DBusObject& object, const char* name, int32_t* out);

// Every property of the interface as an "a{sv}" dictionary, or an empty handle.
ScopedVariant read_all_properties(const DBusObject& object);
// The member name of a dictionary read by read_all_properties, when it has type.
GVariant* dictionary_member(GVariant* dictionary, const char* name, const GVariantType* type);

// The platform's result code of a single-property write; the value is consumed.
int32_t write_property(const DBusObject& object, const char* name, GVariant* value);

// An "a{sv}" dictionary for a multi-property write. Its members keep the order they
// were added in, which is the order the platform applies them.
class PropertyWrite {
 public:
  PropertyWrite();
  void add(const char* name, GVariant* value);  // value consumed
  void add_text(const char* name, const char* value);
  void add_bool(const char* name, bool value);
  void add_uint32(const char* name, uint32_t value);
  void add_int32(const char* name, int32_t value);
  // Sends the dictionary (once); the platform's result code.
  int32_t send(const DBusObject& object);

 private:
  ScopedBuilder builder_;
};
static_assert(std::is_trivially_destructible_v<PropertyWrite>, "a longjmp may pass over a PropertyWrite");

// Copies text into out (cap bytes) cut at a whole UTF-8 character: at most cap - 1
// bytes, never half a character. Returns false when anything was cut.
bool copy_utf8_text(char* out, size_t cap, const char* text);

}  // namespace velconfig
