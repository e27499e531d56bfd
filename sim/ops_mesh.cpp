// Simulated EasyMesh service ("com.brimvale.easymesh1", its management object) and
// the Wi-Fi information's "MAPAgent". Without the model's `easymesh` object the
// service is absent: its properties cannot be read or written.
#include <string.h>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/sim.h"

namespace velsim {
namespace {

constexpr const char* kMeshService = "com.brimvale.easymesh1";
constexpr const char* kMeshPath = "/com/zom/map1/Management";
constexpr const char* kMeshInterface = "com.zom.map1.Management";

// A model member as the service reports it: its GVariant type follows the member's
// JSON type ("b", "s", "i"), so a model can hold a property of an unexpected type.
GVariant* member_value(json_t* holder, const char* key) {
  json_t* v = json_is_object(holder) ? json_object_get(holder, key) : nullptr;
  if (json_is_boolean(v)) return g_variant_new_boolean(json_is_true(v));
  if (json_is_string(v)) {
    const char* text = json_string_value(v);
    // A D-Bus string is UTF-8; a model text that is not is reported empty.
    return g_variant_new_string(g_utf8_validate(text, -1, nullptr) ? text : "");
  }
  if (json_is_integer(v)) return g_variant_new_int32(static_cast<int32_t>(json_integer_value(v)));
  return nullptr;
}

json_t* mesh() { return json_object_get(model(), "easymesh"); }

// The service's properties in the order it lists them, with their model members.
struct MeshMember {
  const char* property;
  const char* key;
  bool flag;  // boolean ("b"); otherwise text ("s")
};
constexpr MeshMember kMeshMembers[] = {
    {"Enable", "enable", true},       {"enable2G", "enable_2g", true}, {"enable5G", "enable_5g", true},
    {"ssid2G", "ssid_2g", false},     {"ssid5G", "ssid_5g", false},    {"authMode2G", "auth_2g", false},
    {"authMode5G", "auth_5g", false}, {"key2G", "key_2g", false},      {"key5G", "key_5g", false},
};

template <size_t I>
GVariant* get_mesh_member(const char*) {
  json_t* m = mesh();
  return json_is_object(m) ? member_value(m, kMeshMembers[I].key) : nullptr;
}

// A write must carry the property's own type.
template <size_t I>
int32_t set_mesh_member(const char*, GVariant* value) {
  json_t* m = mesh();
  if (!json_is_object(m)) return kNoSuchObject;
  const MeshMember& member = kMeshMembers[I];
  if (!g_variant_is_of_type(value, member.flag ? G_VARIANT_TYPE_BOOLEAN : G_VARIANT_TYPE_STRING))
    return kWrongType;
  json_object_set_new(m, member.key,
                      member.flag ? json_boolean(g_variant_get_boolean(value))
                                  : json_string(g_variant_get_string(value, nullptr)));
  return 0;
}

template <size_t I>
Property mesh_property() {
  return {kMeshService,       kMeshPath,         kMeshInterface, kMeshMembers[I].property,
          get_mesh_member<I>, set_mesh_member<I>};
}

const PropertyTable kMeshProperties{mesh_property<0>(), mesh_property<1>(), mesh_property<2>(),
                                    mesh_property<3>(), mesh_property<4>(), mesh_property<5>(),
                                    mesh_property<6>(), mesh_property<7>(), mesh_property<8>()};
static_assert(sizeof kMeshMembers / sizeof kMeshMembers[0] == 9, "the service has nine properties");

const PropertyTable kMapAgentProperties{
    {"com.zom.igd1", "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo", "MAPAgent",
     [](const char*) { return member_value(object_at("wifi"), "map_agent"); }, nullptr},
};

}  // namespace
}  // namespace velsim
