/// The operation kinds that a board file may name, and what each reads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// One operation kind.
struct OperationKind {
  /// Value of `OperationConfig::kind`.
  std::string_view kind;
  /// Names of the `OperationConfig` members that the kind reads, in their order there. `kind`
  /// itself, and `label`, `description` and `option_flag`, which no kind reads, are left out.
  std::vector<std::string_view> members;
  /// Those of `members` that a board file must give.
  std::vector<std::string_view> required;
  /// What the operation takes as payload, in a few words for people: "none", "u16 (2 bytes)".
  ///
  /// Never empty. The operation may be any, also one that a board file would refuse; its `kind` is
  /// not looked at.
  std::string (*describe_payload)(const OperationConfig& op, const BoardConfig& board) = nullptr;
};

/// All kinds. The table is built once and lives until the program ends.
const std::vector<OperationKind>& operation_kinds();

/// The row of that kind, compared byte for byte; null when there is none.
const OperationKind* find_operation_kind(std::string_view kind);

}  // namespace velmora_can_bridge
