/// What operations take as payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/config/value_description.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One value of a payload.
struct PayloadValue {
  /// "led_red", "mask"; never empty.
  std::string name{};
  ValueType type = ValueType::bytes;
  /// Bytes that it takes, lowest first; a number may have fewer than its type. 0 for any number of
  /// bytes.
  std::size_t length = 0;
  /// Whether anybody tells the type. Else it is unsigned, as bytes are, and may be meant signed.
  bool is_type_known = false;
  /// Of a whole number: what it may be, in counts.
  CountRange range{};
  /// As in `ValueDescription`.
  std::string unit{};
  std::optional<double> scale{};
  std::vector<NamedCode> values{};
  /// It may be left out, together with everything behind it.
  bool is_optional = false;
};

/// The values of a payload, back to back.
struct PayloadLayout {
  std::vector<PayloadValue> values{};
  /// Any bytes may follow the last value.
  bool more_may_follow = false;
  /// So many values at the beginning choose what the others are.
  std::size_t selecting = 0;
  /// What happens to a payload that is left out, in a few words; empty where there is nothing to
  /// say.
  std::string remark{};
};

/// An operation, run on a device.
struct PayloadUse {
  const NodeConfig& node;
  /// A name that the node does not have stands for any device.
  std::string device{};
  const OperationConfig& operation;
  /// The mode of operation recorded for the device (`CanOpenNodeController::motor_mode`).
  std::uint8_t motor_mode = 0;
};

/// What the operation takes. Where values at the beginning choose what the others are,
/// `beginning` is the bytes of those (further ones do not count); without them the others are told
/// as far as they are alike.
///
/// Instead of a layout, why no payload of any size can succeed. The operation may be any, also one
/// that a board file would refuse.
Expected<PayloadLayout> payload_layout(const PayloadUse& use,
                                       const std::vector<std::uint8_t>& beginning = {});

/// Why the payload is none of this layout: it ends within a value or before one that must be there,
/// goes on behind the last, or a number is out of its range. No value when it is one.
std::optional<std::string> payload_refusal(const PayloadLayout& layout,
                                           const std::vector<std::uint8_t>& payload);

/// "led_mode u8, 0 to 3 (off 0, on 1)": one value, and at most ten names of its codes.
std::string payload_value_text(const PayloadValue& value);

/// The layout on one line, such as "led_red u8; led_green u8; [led_blue u8]"; in brackets what may
/// be left out. "nothing" where it has no values.
std::string payload_layout_text(const PayloadLayout& layout);

}  // namespace velmora_can_bridge
