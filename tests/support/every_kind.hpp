// That a table of tests forgets no kind.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {

/// Fails for each kind of which none of the rows is; the member `op` of a row is its operation.
template <typename Rows>
void expect_row_for_every_kind(const Rows& rows) {
  for (const OperationKind& known : operation_kinds) {
    const bool has_row = std::any_of(std::begin(rows), std::end(rows),
                                     [&](const auto& row) { return row.op.kind == known.kind; });
    EXPECT_TRUE(has_row) << "no row for kind " << known.kind;
  }
}

}  // namespace velmora_can_bridge
