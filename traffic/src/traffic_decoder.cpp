#include "velmora_can_bridge/traffic/traffic_decoder.hpp"

#include <algorithm>
#include <utility>

#include "ground/frame_bits.hpp"
#include "ground/little_endian.hpp"
#include "ground/node_text.hpp"
#include "ground/pdo.hpp"

namespace velmora_can_bridge {
namespace {

/// Whether the frame has the one length that its kind has; says so otherwise.
bool has_length(DecodedFrame& decoded, std::size_t length, const std::string& kind) {
  if (decoded.frame.length == length) {
    return true;
  }
  decoded.problem =
      counted(decoded.frame.length, "byte") + ", " + kind + " has " + std::to_string(length);
  return false;
}

/// The whole value of a transfer, where the frame brings it or is the last of those that do; null
/// else, and where only the beginning of a long value is kept.
const std::vector<std::uint8_t>* whole_value(const SdoContent& sdo) {
  if (sdo.step == SdoStep::write || sdo.step == SdoStep::value) {
    return &sdo.bytes;
  }
  const bool is_whole = sdo.step == SdoStep::last_segment && sdo.size == sdo.whole.size();
  return is_whole ? &sdo.whole : nullptr;
}

}  // namespace

std::vector<DecodedField> decoded_fields(const NodeConfig& node, const PdoConfig& pdo,
                                         const CanFrame& frame) {
  const std::uint64_t word = frame_word(frame.data);
  std::vector<DecodedField> fields;
  unsigned offset = 0;
  for (const PdoMapping& mapping : pdo.mappings) {
    const unsigned end = offset + mapping.bit_length;
    if (bytes_for_bits(end) > frame.length) {
      break;
    }
    if (carries_object(mapping)) {
      const std::uint64_t bits = bits_of(word, offset, mapping.bit_length);
      fields.push_back(
          {object_name(&node, mapping.index, mapping.sub_index), mapping.bit_length, bits,
           read_field(&node, mapping.index, mapping.sub_index, bits, mapping.bit_length)});
    }
    offset = end;
  }
  return fields;
}

TrafficDecoder::TrafficDecoder(const BoardFile& file) {
  for (const NodeConfig& node : file.nodes) {
    if (is_node_id(node.node_id)) {
      nodes_.at(node.node_id).config = &node;
    }
    for (const PdoConfig& pdo : node.board.pdos) {
      const std::uint16_t cob_id = cob_id_of(node.node_id, pdo);
      if (cob_id != 0) {
        pdos_.push_back({cob_id, &node, &pdo});
      }
    }
  }
  std::stable_partition(pdos_.begin(), pdos_.end(),
                        [](const Pdo& pdo) { return !is_rpdo(*pdo.config); });
}

DecodedFrame TrafficDecoder::decode(const CanFrame& frame) {
  DecodedFrame decoded;
  decoded.frame = frame;
  decoded.frame.length =
      static_cast<std::uint8_t>(std::min<std::size_t>(frame.length, frame.data.size()));
  if (!decode_broadcast(decoded) && !decode_node_service(decoded) && !decode_mapped_pdo(decoded)) {
    decode_predefined_pdo(decoded);
  }
  return decoded;
}

bool TrafficDecoder::decode_broadcast(DecodedFrame& decoded) {
  switch (decoded.frame.id) {
    case nmt_cob_id:
      decode_nmt(decoded);
      return true;
    case sync_cob_id:
      decoded.kind = TrafficKind::sync;
      return true;
    case time_cob_id:
      decoded.kind = TrafficKind::time;
      return true;
    default:
      return false;
  }
}

/// Frames whose COB-ID holds a node id and a function other than a PDO.
bool TrafficDecoder::decode_node_service(DecodedFrame& decoded) {
  const std::uint16_t function = decoded.frame.id & static_cast<std::uint16_t>(~highest_node_id);
  if (!is_node_id(node_id_of(decoded.frame.id))) {
    return false;
  }
  switch (function) {
    case emergency_cob_id:
      decode_emergency(decoded);
      return true;
    case sdo_answer_cob_id:
      decode_sdo(decoded, TrafficKind::sdo_answer);
      return true;
    case sdo_request_cob_id:
      decode_sdo(decoded, TrafficKind::sdo_request);
      return true;
    case heartbeat_cob_id:
      decode_heartbeat(decoded);
      return true;
    default:
      return false;
  }
}

void TrafficDecoder::decode_nmt(DecodedFrame& decoded) const {
  decoded.kind = TrafficKind::nmt;
  if (!has_length(decoded, 2, "an NMT command")) {
    return;
  }
  decoded.content = NmtContent{decoded.frame.data[0]};
  if (decoded.frame.data[1] <= highest_node_id) {
    set_node(decoded, decoded.frame.data[1]);
  } else {
    decoded.problem = hex<2>(decoded.frame.data[1]) + " is no node id";
  }
}

void TrafficDecoder::decode_heartbeat(DecodedFrame& decoded) {
  decoded.kind = TrafficKind::heartbeat;
  set_node(decoded, node_id_of(decoded.frame.id));
  if (!has_length(decoded, 1, "a heartbeat")) {
    return;
  }
  Node& node = nodes_.at(decoded.node_id);
  const auto state = heartbeat_state(decoded.frame.data[0]);
  const bool has_changed = std::exchange(node.state, state) != state;
  decoded.content = HeartbeatContent{state, has_changed};
  if (state == NmtState::boot_up) {
    decoded.kind = TrafficKind::boot_up;
    node.sdo.reset();
  }
}

void TrafficDecoder::decode_emergency(DecodedFrame& decoded) const {
  decoded.kind = TrafficKind::emergency;
  set_node(decoded, node_id_of(decoded.frame.id));
  const auto& data = decoded.frame.data;
  if (!has_length(decoded, data.size(), "an emergency")) {
    return;
  }
  EmergencyContent emergency;
  emergency.error_code = static_cast<std::uint16_t>(little_endian_number(data.begin(), 2));
  emergency.error_register = data[2];
  std::copy(data.begin() + 3, data.end(), emergency.device_data.begin());
  decoded.content = emergency;
}

void TrafficDecoder::decode_sdo(DecodedFrame& decoded, TrafficKind kind) {
  decoded.kind = kind;
  set_node(decoded, node_id_of(decoded.frame.id));
  Node& node = nodes_.at(decoded.node_id);
  SdoTrafficContent content;
  content.sdo = kind == TrafficKind::sdo_request ? node.sdo.request(decoded.frame)
                                                 : node.sdo.answer(decoded.frame);
  if (content.sdo.object) {
    const auto [index, sub_index] = *content.sdo.object;
    content.object = object_name(node.config, index, sub_index);
    if (const auto* const bytes = whole_value(content.sdo)) {
      content.reading = read_value(node.config, index, sub_index, *bytes);
    }
  }
  decoded.problem = content.sdo.problem;
  decoded.content = std::move(content);
}

bool TrafficDecoder::decode_mapped_pdo(DecodedFrame& decoded) const {
  PdoContent content;
  const Pdo* first = nullptr;
  for (const Pdo& pdo : pdos_) {
    if (pdo.cob_id != decoded.frame.id) {
      continue;
    }
    if (first != nullptr) {
      content.also.push_back(pdo_text(*pdo.config) + " of " + node_text(pdo.node->node_id));
      continue;
    }
    first = &pdo;
  }
  if (first == nullptr) {
    return false;
  }
  decoded.kind = is_rpdo(*first->config) ? TrafficKind::rpdo : TrafficKind::tpdo;
  decoded.node_id = first->node->node_id;
  const std::size_t needed = mapped_bytes(first->config->mappings);
  if (decoded.frame.length != needed) {
    decoded.problem =
        counted(decoded.frame.length, "byte") + ", the mapping needs " + std::to_string(needed);
  }
  content.number = first->config->number;
  content.fields = decoded_fields(*first->node, *first->config, decoded.frame);
  decoded.content = std::move(content);
  return true;
}

/// A PDO that the board file does not hold, by the predefined connection set.
void TrafficDecoder::decode_predefined_pdo(DecodedFrame& decoded) const {
  const std::uint8_t node_id = node_id_of(decoded.frame.id);
  const std::optional<PdoName> pdo = predefined_pdo(node_id, decoded.frame.id);
  if (!pdo) {
    return;
  }
  const NodeConfig* const node = nodes_.at(node_id).config;
  if (node != nullptr && find_pdo(node->board, pdo->direction, pdo->number) != nullptr) {
    return;  // that PDO has another COB-ID
  }
  PdoContent content;
  content.number = pdo->number;
  decoded.kind = pdo->direction == PdoDirection::rpdo ? TrafficKind::rpdo : TrafficKind::tpdo;
  set_node(decoded, node_id);
  if (node != nullptr) {
    decoded.problem = "not in the board file";
  }
  decoded.content = std::move(content);
}

void TrafficDecoder::set_node(DecodedFrame& decoded, std::uint8_t node_id) const {
  decoded.node_id = node_id;
  decoded.is_node_known = node_id == 0 || nodes_.at(node_id).config != nullptr;
}

}  // namespace velmora_can_bridge
