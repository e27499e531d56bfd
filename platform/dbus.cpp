// D-Bus property helpers over the platform library's property operations.
#include "platform/dbus.h"

#include <string.h>

#include <utility>

#include "platform/zovel.h"

namespace velconfig {

ScopedVariant read_property(const DBusObject& object, const char* name, const GVariantType* type,
                            PropertyRead* outcome) {
  GVariant* raw = nullptr;
  int32_t rc = ZoVelDBusGetProperty(object.service, object.path, object.interface, name, &raw);
  // Kept at once: even a refused read may have handed a value over.
  ScopedVariant value(raw);
  PropertyRead how = rc != 0                                              ? PropertyRead::kFailed
                     : raw == nullptr || !g_variant_is_of_type(raw, type) ? PropertyRead::kNoValue
                                                                          : PropertyRead::kValue;
  if (outcome != nullptr) *outcome = how;
  return how == PropertyRead::kValue ? std::move(value) : ScopedVariant();
}

PropertyRead read_text_property(const DBusObject& object, const char* name, char* out, size_t cap) {
  PropertyRead outcome = PropertyRead::kFailed;
  ScopedVariant value = read_property(object, name, G_VARIANT_TYPE_STRING, &outcome);
  if (value) copy_utf8_text(out, cap, g_variant_get_string(value.get(), nullptr));
  return outcome;
}

namespace {

template <class T, class Get>
bool read_typed(const DBusObject& object, const char* name, const GVariantType* type, T* out, Get get) {
  ScopedVariant value = read_property(object, name, type);
  if (!value) return false;
  *out = get(value.get());
  return true;
}

}  // namespace

bool read_bool_property(const DBusObject& object, const char* name, bool* out) {
  return read_typed(object, name, G_VARIANT_TYPE_BOOLEAN, out,
                    [](GVariant* v) { return g_variant_get_boolean(v) != FALSE; });
}

bool read_uint32_property(const DBusObject& object, const char* name, uint32_t* out) {
  return read_typed(object, name, G_VARIANT_TYPE_UINT32, out, g_variant_get_uint32);
}

bool read_int32_property(const DBusObject& object, const char* name, int32_t* out) {
  return read_typed(object, name, G_VARIANT_TYPE_INT32, out, g_variant_get_int32);
}

ScopedVariant read_all_properties(const DBusObject& object) {
  GVariant* raw = nullptr;
  int32_t rc = ZoVelDBusGetAllProperty(object.service, object.path, object.interface, &raw);
  ScopedVariant value(raw);
  if (rc != 0 || raw == nullptr || !g_variant_is_of_type(raw, G_VARIANT_TYPE("a{sv}")))
    return ScopedVariant();
  return value;
}

GVariant* dictionary_member(GVariant* dictionary, const char* name, const GVariantType* type) {
  if (dictionary == nullptr) return nullptr;
  GVariant* member = g_variant_lookup_value(dictionary, name, type);
  ScopedVariant kept(member);
  return member;
}

int32_t write_property(const DBusObject& object, const char* name, GVariant* value) {
  return ZoVelDBusSetProperty(object.service, object.path, object.interface, name, value);
}

PropertyWrite::PropertyWrite() { builder_.adopt(g_variant_builder_new(G_VARIANT_TYPE("a{sv}"))); }

void PropertyWrite::add(const char* name, GVariant* value) {
  g_variant_builder_add(builder_.get(), "{sv}", name, value);
}

void PropertyWrite::add_text(const char* name, const char* value) { add(name, g_variant_new_string(value)); }
void PropertyWrite::add_bool(const char* name, bool value) { add(name, g_variant_new_boolean(value)); }
void PropertyWrite::add_uint32(const char* name, uint32_t value) { add(name, g_variant_new_uint32(value)); }
void PropertyWrite::add_int32(const char* name, int32_t value) { add(name, g_variant_new_int32(value)); }

int32_t PropertyWrite::send(const DBusObject& object) {
  if (!builder_) return -1;
  // An ended builder cannot be ended again: the handle moves out, so a second send
  // finds none; the call scope frees the builder and the dictionary.
  ScopedBuilder ended = std::move(builder_);
  ScopedVariant dictionary(g_variant_ref_sink(g_variant_builder_end(ended.get())));
  return ZoVelDBusSetMultiProperty(object.service, object.path, object.interface, dictionary.get());
}

bool copy_utf8_text(char* out, size_t cap, const char* text) {
  if (cap == 0) return text == nullptr || *text == '\0';
  if (text == nullptr) text = "";
  const char* end = nullptr;
  g_utf8_validate(text, -1, &end);
  size_t valid = static_cast<size_t>(end - text);
  size_t n = valid;
  if (n > cap - 1) {
    n = cap - 1;
    // Back off to the start of the character that would be cut.
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
  }
  memcpy(out, text, n);
  out[n] = '\0';
  return n == strlen(text);
}

}  // namespace velconfig
