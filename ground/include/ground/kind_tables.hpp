// What holds for every table with one row a kind, checked when it is compiled.
#pragma once

#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {

/// Whether `others` has a row of the kind of every one of `rows`.
template <typename Rows, typename Others>
constexpr bool has_rows_for(const Others& others, const Rows& rows) {
  for (const auto& row : rows) {
    bool found = false;
    for (const auto& other : others) {
      found = found || other.kind == row.kind;
    }
    if (!found) {
      return false;
    }
  }
  return true;
}

}  // namespace velmora_can_bridge
