#include "velmora_can_bridge/values/answer_words.hpp"

#include <algorithm>
#include <cstddef>

#include "ground/drive_objects.hpp"
#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "joined_words.hpp"
#include "read_description.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Parts = std::vector<AnswerPart>;

AnswerPart part(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index,
                const Bytes& bytes) {
  return {index, sub_index, read_value(&node, index, sub_index, bytes)};
}

const DeviceOdEntry* find_device(const NodeConfig& node, const std::string& device) {
  const auto found = node.board.device_od_map.find(device);
  return found == node.board.device_od_map.end() ? nullptr : &found->second;
}

/// The payload is an offset of two bytes and a sub-index, where it has them.
Parts io_part(const NodeConfig& node, const DeviceOdEntry& device, const Bytes& payload,
              const Bytes& data) {
  const std::uint64_t offset = payload.size() >= 2 ? little_endian_number(payload.begin(), 2) : 0;
  const std::uint8_t sub_index = payload.size() >= 3 ? payload[2] : std::uint8_t{0};
  return {part(node, static_cast<std::uint16_t>(device.base_index + offset), sub_index, data)};
}

/// In bytes; 0 when it is not known.
std::size_t known_length(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index) {
  const ValueDescription value = read_description(&node, index, sub_index);
  return value.type ? length_of(*value.type).value_or(0) : 0;
}

/// The lengths of the values in `data`, one for each sub-index; empty when they are not known.
std::vector<std::size_t> lengths_in(const NodeConfig& node, const OperationConfig& op,
                                    const Bytes& data) {
  if (op.sub_indices.size() == 1) {
    return {data.size()};
  }
  std::vector<std::size_t> lengths;
  std::size_t sum = 0;
  bool are_known = true;
  for (const std::uint8_t sub_index : op.sub_indices) {
    lengths.push_back(known_length(node, op.index, sub_index));
    sum += lengths.back();
    are_known = are_known && lengths.back() != 0;
  }
  return are_known && sum == data.size() ? lengths : std::vector<std::size_t>();
}

Parts record_parts(const NodeConfig& node, const OperationConfig& op, const Bytes& data) {
  Parts parts;
  auto from = data.begin();
  const std::vector<std::size_t> lengths = lengths_in(node, op, data);
  for (std::size_t position = 0; position < lengths.size(); ++position) {
    const auto to = from + static_cast<std::ptrdiff_t>(lengths[position]);
    parts.push_back(part(node, op.index, op.sub_indices[position], Bytes(from, to)));
    from = to;
  }
  return parts;
}

Parts claw_parts(const NodeConfig& node, const DeviceOdEntry& claw, const Bytes& data) {
  Parts parts;
  for (const ClawObject object : {ClawObject::action_state, ClawObject::position_state}) {
    if (parts.size() < data.size()) {
      parts.push_back(
          part(node, claw.homing_record, static_cast<std::uint8_t>(object), {data[parts.size()]}));
    }
  }
  return parts;
}

bool adds_to_bytes(const AnswerPart& part) {
  return !part.reading.words.empty() || (part.reading.is_typed && part.reading.number);
}

/// The states of a claw need neither their numbers nor where they stand.
std::string claw_words(const Parts& parts) {
  std::string text;
  for (const AnswerPart& each : parts) {
    join_words(text, each.reading.words.empty() ? reading_text(each.reading) : each.reading.words);
  }
  return text;
}

}  // namespace

std::vector<AnswerPart> answer_parts(const NodeConfig& node, const std::string& device,
                                     const OperationConfig& op,
                                     const std::vector<std::uint8_t>& payload,
                                     const std::vector<std::uint8_t>& data) {
  if (data.empty()) {
    return {};
  }
  if (op.kind == "sdo_read") {
    return {part(node, op.index, op.sub_index, data)};
  }
  if (op.kind == "read_multi") {
    return record_parts(node, op, data);
  }
  const DeviceOdEntry* const entry = find_device(node, device);
  if (entry == nullptr) {
    return {};
  }
  if (op.kind == "od_io_read") {
    return io_part(node, *entry, payload, data);
  }
  return op.kind == "claw_action" ? claw_parts(node, *entry, data) : Parts();
}

std::string answer_words(const NodeConfig& node, const std::string& device,
                         const OperationConfig& op, const std::vector<std::uint8_t>& payload,
                         const std::vector<std::uint8_t>& data) {
  const Parts parts = answer_parts(node, device, op, payload, data);
  if (std::none_of(parts.begin(), parts.end(), adds_to_bytes)) {
    return {};
  }
  if (op.kind == "claw_action") {
    return claw_words(parts);
  }
  if (parts.size() == 1) {
    return reading_text(parts.front().reading);
  }
  std::string text;
  for (const AnswerPart& each : parts) {
    join_words(text, object_text(each.index, each.sub_index) + " = " + reading_text(each.reading));
  }
  return text;
}

}  // namespace velmora_can_bridge
