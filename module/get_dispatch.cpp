// The read keys, joined from the feature folders' rows in comparison order; the
// first equal key wins.
#include "apps/keys.h"
#include "interconnect/keys.h"
#include "loid/keys.h"
#include "module/dispatch.h"
#include "module/key_join.h"
#include "network/keys.h"
#include "status/keys.h"
#include "storage/keys.h"
#include "wifi/keys.h"

namespace velconfig {
namespace {

constexpr RowSpan<GetRow> kGetParts[] = {
    span_of(kStatusGetRows),       span_of(kNetworkGetRows), span_of(kWifiGetRows), span_of(kLoidGetRows),
    span_of(kInterconnectGetRows), span_of(kStorageGetRows), span_of(kAppsGetRows),
};
constexpr size_t kGetKeyCount = row_total(kGetParts);
constexpr JoinedRows<GetRow, kGetKeyCount> kGetKeys = join_rows<GetRow, kGetKeyCount>(kGetParts);

// The pages' contract: 37 read keys, each at its own place.
static_assert(kGetKeyCount == 37, "get answers 37 keys");
static_assert(kGetKeys.whole,
              "the read rows' positions must run 1..37 without a gap or a repeat, keys unique");

}  // namespace

GetHandler find_get_handler(std::string_view key) {
  for (const GetRow& row : kGetKeys.rows) {
    if (key == row.key) return row.handler;
  }
  return nullptr;
}

std::pair<const GetRow*, size_t> get_keys() { return {kGetKeys.rows, kGetKeyCount}; }

}  // namespace velconfig
