/// The operation kinds that a controller knows, and what each reads of its configuration.
#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <string_view>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Names of `OperationConfig` members: at most 8, in their order there. Takes nothing from the
/// heap.
class MemberNames {
 public:
  constexpr MemberNames(std::initializer_list<std::string_view> names) {
    for (const std::string_view name : names) {
      names_.at(size_++) = name;
    }
  }

  constexpr const std::string_view* begin() const { return names_.data(); }
  constexpr const std::string_view* end() const { return names_.data() + size_; }

  constexpr bool contains(std::string_view wanted) const {
    bool found = false;
    for (const std::string_view name : *this) {
      found = found || name == wanted;
    }
    return found;
  }

 private:
  std::array<std::string_view, 8> names_{};
  std::size_t size_ = 0;
};

/// One operation kind. docs/operations.md tells what it does.
struct OperationKind {
  /// Value of `OperationConfig::kind`.
  std::string_view kind{};
  /// The members that the kind reads. `kind` itself, and `label`, `description` and `option_flag`,
  /// which no kind reads, are left out.
  MemberNames members{};
  /// Those of `members` without which the kind has nothing to do: a board file must give them.
  MemberNames required{};
};

/// All kinds, each once: those that `CanOpenNodeController::execute_configured_operation` knows. A
/// new one comes last. The controller tries them in another order, that of its own table.
inline constexpr OperationKind operation_kinds[] = {
    {"sdo_write",
     {"index", "sub_index", "subindex_in_payload", "fixed_data", "default_data", "data_type"},
     {"index"}},
    {"sdo_read", {"index", "sub_index"}, {"index"}},
    {"od_io_read", {}, {}},
    {"od_io_write", {"transport"}, {}},
    {"led_write",
     {"transport", "index", "pdo_number", "refresh_shadow", "fields", "led_operation"},
     {"fields", "led_operation"}},
    {"read_multi", {"index", "sub_indices"}, {"index", "sub_indices"}},
    {"auto_write",
     {"transport", "index", "sub_index", "data_type", "field", "pdo_number", "refresh_shadow",
      "fields"},
     {"index"}},
    {"pdo_write",
     {"transport", "index", "sub_index", "field", "pdo_number", "refresh_shadow", "fields"},
     {}},
    {"pdo_patch",
     {"transport", "index", "sub_index", "field", "pdo_number", "refresh_shadow", "fields"},
     {}},
    {"bit_patch", {"transport", "index", "field", "pdo_number", "fields"}, {}},
    {"pdo_bit_patch",
     {"transport", "index", "pdo_number", "refresh_shadow", "bit_index", "named", "fields"},
     {"fields"}},
    {"ci402_enable", {}, {}},
    {"ci402_disable", {}, {}},
    {"ci402_quick_stop", {}, {}},
    {"ci402_set_mode", {}, {}},
    {"ci402_set_target", {"transport"}, {}},
    {"ci402_ramp", {"index_offset"}, {"index_offset"}},
    {"claw_action", {"action"}, {"action"}},
    {"pump_duty",
     {"transport", "index", "pump_pdo_number", "rpdo_channels", "sdo_channels"},
     {"index"}},
};

/// The row of that kind, compared byte for byte; null when there is none.
constexpr const OperationKind* find_operation_kind(std::string_view kind) {
  for (const OperationKind& row : operation_kinds) {
    if (row.kind == kind) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace velmora_can_bridge
