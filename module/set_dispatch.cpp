// The write keys, joined from the feature folders' rows in comparison order; the
// first equal key wins.
#include "apps/keys.h"
#include "interconnect/keys.h"
#include "loid/keys.h"
#include "module/dispatch.h"
#include "module/key_join.h"
#include "network/keys.h"
#include "storage/keys.h"
#include "system/keys.h"
#include "wifi/keys.h"

namespace velconfig {
namespace {

constexpr RowSpan<SetRow> kSetParts[] = {
    span_of(kSystemSetRows), span_of(kNetworkSetRows), span_of(kWifiSetRows), span_of(kInterconnectSetRows),
    span_of(kLoidSetRows),   span_of(kStorageSetRows), span_of(kAppsSetRows),
};
constexpr size_t kSetKeyCount = row_total(kSetParts);
constexpr JoinedRows<SetRow, kSetKeyCount> kSetKeys = join_rows<SetRow, kSetKeyCount>(kSetParts);

// The pages' contract: 25 write keys, each at its own place.
static_assert(kSetKeyCount == 25, "set answers 25 keys");
static_assert(kSetKeys.whole,
              "the write rows' positions must run 1..25 without a gap or a repeat, keys unique");

}  // namespace

SetHandler find_set_handler(std::string_view key) {
  for (const SetRow& row : kSetKeys.rows) {
    if (key == row.key) return row.handler;
  }
  return nullptr;
}

std::pair<const SetRow*, size_t> set_keys() { return {kSetKeys.rows, kSetKeyCount}; }

}  // namespace velconfig
