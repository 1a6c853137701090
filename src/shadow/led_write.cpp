#include <cstddef>

#include "dispatch/payload.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t highest_led_mode = 3;
constexpr std::uint8_t first_periodic_led_mode = 2;

/// A sub-operation's payload and the write that it becomes.
struct LedOperation {
  const char* name;
  std::size_t payload_size;
  const char* wrong_size;
  /// Where mode (1 byte) and period (2 bytes) stand in the payload; its end when it has none.
  std::size_t mode_position;
  /// A patch first loads the image from the node, so that fields that the payload does not carry
  /// keep the node's current values; a full write carries every field.
  bool patch;
};

constexpr LedOperation led_operations[] = {
    {"set_led", 6, "set_led payload must contain exactly 6 bytes", 3, false},
    {"set_color", 3, "set_color payload must contain exactly 3 bytes", 3, true},
    {"set_mode", 3, "set_mode payload must contain exactly 3 bytes", 0, true},
};

const LedOperation* find_led_operation(const std::string& name) {
  for (const LedOperation& operation : led_operations) {
    if (name == operation.name) {
      return &operation;
    }
  }
  return nullptr;
}

/// Why the payload is refused; null when it is not.
const char* refusal(const LedOperation& operation, const std::vector<std::uint8_t>& payload) {
  if (payload.size() != operation.payload_size) {
    return operation.wrong_size;
  }
  if (operation.mode_position == payload.size()) {
    return nullptr;
  }
  const std::uint8_t mode = payload[operation.mode_position];
  const std::uint16_t period = u16_at(payload, operation.mode_position + 1);
  if (mode > highest_led_mode) {
    return "unsupported LED mode (expected 0..3)";
  }
  if (mode >= first_periodic_led_mode && period == 0) {
    return "breath/blink period must be greater than zero";
  }
  return nullptr;
}

}  // namespace

OperationResult CanOpenNodeController::exec_led_write(const OperationConfig& op,
                                                      const std::string& device,
                                                      const std::vector<std::uint8_t>& payload) {
  if (op.fields.empty()) {
    return failure("led_write requires fields");
  }
  const LedOperation* const operation = find_led_operation(op.led_operation);
  if (operation == nullptr) {
    return failure("Unknown led_write operation: " + op.led_operation);
  }
  if (const char* const reason = refusal(*operation, payload)) {
    return failure(reason);
  }
  OperationConfig derived = op;
  if (operation->patch) {
    derived.kind = "pdo_patch";
    derived.refresh_shadow = 1;
  } else {
    derived.kind = "pdo_write";
  }
  return execute_configured_operation(derived, device, payload);
}

}  // namespace velmora_can_bridge
