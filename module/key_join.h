// Joins the feature folders' key rows into one table in comparison order, at
// compile time, and says whether the rows make a whole order: every place from 1 to
// the number of rows taken exactly once, and no key given twice.
#pragma once

#include <stddef.h>

#include "common/key_row.h"

namespace velconfig {

template <class Row>
struct RowSpan {
  const Row* rows;
  size_t count;
};

template <class Row, size_t N>
constexpr RowSpan<Row> span_of(const Row (&rows)[N]) {
  return {rows, N};
}

template <class Row, size_t N>
struct JoinedRows {
  Row rows[N];
  bool whole;  // every place 1..N taken once and no key twice
};

constexpr bool same_text(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) {
    ++a;
    ++b;
  }
  return *a == *b;
}

// Places each row at its position; N must be the total of the parts' counts.
template <class Row, size_t N, size_t Parts>
constexpr JoinedRows<Row, N> join_rows(const RowSpan<Row> (&parts)[Parts]) {
  JoinedRows<Row, N> joined{};
  int taken[N + 1] = {};
  size_t total = 0;
  for (const RowSpan<Row>& part : parts) {
    for (size_t i = 0; i < part.count; ++i) {
      const Row& row = part.rows[i];
      ++total;
      if (row.position < 1 || static_cast<size_t>(row.position) > N) return joined;
      ++taken[row.position];
      joined.rows[row.position - 1] = row;
    }
  }
  if (total != N) return joined;
  for (size_t p = 1; p <= N; ++p) {
    if (taken[p] != 1) return joined;
  }
  for (size_t i = 0; i < N; ++i) {
    for (size_t j = i + 1; j < N; ++j) {
      if (same_text(joined.rows[i].key, joined.rows[j].key)) return joined;
    }
  }
  joined.whole = true;
  return joined;
}

template <class Row, size_t Parts>
constexpr size_t row_total(const RowSpan<Row> (&parts)[Parts]) {
  size_t total = 0;
  for (const RowSpan<Row>& part : parts) total += part.count;
  return total;
}

}  // namespace velconfig
