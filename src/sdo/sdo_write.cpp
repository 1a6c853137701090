#include <optional>

#include "dispatch/results.hpp"
#include "sdo/encode_payload.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

/// The bytes to write when the sub-index is the configured one; no value when the payload does not
/// suit the data type.
std::optional<std::vector<std::uint8_t>> choose_data(const OperationConfig& op,
                                                     const std::vector<std::uint8_t>& payload) {
  if (!op.fixed_data.empty()) {
    return op.fixed_data;
  }
  if (payload.empty() && !op.default_data.empty()) {
    return op.default_data;
  }
  return encode_payload(op.data_type, payload);
}

}  // namespace

OperationResult CanOpenNodeController::exec_sdo_write(const OperationConfig& op,
                                                      const std::string& /*device*/,
                                                      const std::vector<std::uint8_t>& payload) {
  std::uint8_t sub_index = op.sub_index;
  std::optional<std::vector<std::uint8_t>> data;
  if (op.subindex_in_payload != 0) {
    if (payload.empty()) {
      return failure("payload empty for sdo_write (need sub+data)");
    }
    sub_index = payload.front();
    data.emplace(payload.begin() + 1, payload.end());
  } else {
    data = choose_data(op, payload);
  }
  // One text for every refusal, an unknown data type included: callers match on it.
  if (!data) {
    return failure("payload too short for sdo_write");
  }
  return write_object(op.index, sub_index, *data);
}

}  // namespace velmora_can_bridge
