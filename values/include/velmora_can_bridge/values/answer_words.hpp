/// What the answer of an operation says.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/operation.hpp"
#include "velmora_can_bridge/values/value_words.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One object of which an answer brings the value.
struct AnswerPart {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  ValueReading reading{};
};

/// The objects whose values `data`, the answer of the operation, holds, in its order. Empty for
/// operations that bring none, and where it is not known which bytes belong to which object: those
/// of several sub-indices are told apart by the types of all of them, whose lengths have to add up.
///
/// `payload` is that of the operation: it names the object of an "od_io_read".
std::vector<AnswerPart> answer_parts(const NodeConfig& node, const std::string& device,
                                     const OperationConfig& op,
                                     const std::vector<std::uint8_t>& payload,
                                     const std::vector<std::uint8_t>& data);

/// `answer_parts` on one line: "1591, Operation enabled, target reached", "0x1018/1 = 22,
/// 0x1018/2 = 1", "done, extended" for the states of a claw. Empty where there is nothing to add to
/// the bytes: a number has to be of a known type. Not escaped, as `reading_text`.
std::string answer_words(const NodeConfig& node, const std::string& device,
                         const OperationConfig& op, const std::vector<std::uint8_t>& payload,
                         const std::vector<std::uint8_t>& data);

}  // namespace velmora_can_bridge
