#include "velmora_can_bridge/config/operation_kinds.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sdo/encode_payload.hpp"

namespace velmora_can_bridge {
namespace {

std::string hex_bytes(const std::vector<std::uint8_t>& bytes) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += text.empty() ? "" : " ";
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text;
}

std::string describe_data_type(const std::string& type) {
  if (type.empty() || type == "raw") {
    return "raw (any length)";
  }
  const std::optional<std::size_t> length = sized_type_length(type);
  if (!length) {
    return "none is accepted (unknown data type)";
  }
  return type + " (" + std::to_string(*length) + (*length == 1 ? " byte)" : " bytes)");
}

std::string describe_none(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return "none";
}

std::string describe_sdo_write(const OperationConfig& op, const BoardConfig& /*board*/) {
  if (op.subindex_in_payload != 0) {
    return "sub-index (1 byte), data (any length)";
  }
  if (!op.fixed_data.empty()) {
    return "ignored (always writes " + hex_bytes(op.fixed_data) + ")";
  }
  const std::string type = describe_data_type(op.data_type);
  return op.default_data.empty() ? type : type + ", or none for " + hex_bytes(op.default_data);
}

}  // namespace

const std::vector<OperationKind>& operation_kinds() {
  // One row a kind, in the order in which the controller compares them.
  static const std::vector<OperationKind> rows = {
      {"sdo_write",
       {"index", "sub_index", "subindex_in_payload", "fixed_data", "default_data", "data_type"},
       {"index"},
       describe_sdo_write},
      {"sdo_read", {"index", "sub_index"}, {"index"}, describe_none},
      {"read_multi", {"index", "sub_indices"}, {"index", "sub_indices"}, describe_none},
  };
  return rows;
}

const OperationKind* find_operation_kind(std::string_view kind) {
  const std::vector<OperationKind>& rows = operation_kinds();
  const auto found = std::find_if(rows.begin(), rows.end(),
                                  [&](const OperationKind& row) { return row.kind == kind; });
  return found == rows.end() ? nullptr : &*found;
}

}  // namespace velmora_can_bridge
