#include "traffic_decoder.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

#include "board_pdos.hpp"
#include "dispatch/hex_u16.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint16_t time_cob_id = 0x100;
constexpr std::uint16_t first_pdo_cob_id = 0x180;
constexpr std::uint16_t last_pdo_cob_id = 0x57F;
// Bit 7 of a heartbeat belongs to node guarding, which alternates it.
constexpr std::uint8_t state_mask = 0x7F;
constexpr unsigned bits_per_byte = 8;

std::string bytes_text(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

/// Whether the frame has the one length that its kind has; says so otherwise.
bool has_length(DecodedFrame& decoded, std::size_t length, const std::string& kind) {
  if (decoded.frame.length == length) {
    return true;
  }
  decoded.problem =
      bytes_text(decoded.frame.length) + ", " + kind + " has " + std::to_string(length);
  return false;
}

/// The frame as one number, so that bit n of the frame is bit n of it.
std::uint64_t frame_word(const CanFrame& frame) {
  std::uint64_t word = 0;
  for (std::size_t position = frame.length; position > 0; --position) {
    word = (word << bits_per_byte) | frame.data.at(position - 1);
  }
  return word;
}

std::uint64_t bits_of(std::uint64_t word, unsigned offset, unsigned bit_length) {
  constexpr unsigned word_bits = 64;
  const std::uint64_t rest = word >> offset;
  return bit_length >= word_bits ? rest : rest & ((std::uint64_t{1} << bit_length) - 1);
}

std::vector<DecodedField> fields_of(const NodeConfig& node, const PdoConfig& pdo,
                                    const CanFrame& frame) {
  const std::uint64_t word = frame_word(frame);
  std::vector<DecodedField> fields;
  unsigned offset = 0;
  for (const PdoMapping& mapping : pdo.mappings) {
    const unsigned end = offset + mapping.bit_length;
    if (end > frame.length * bits_per_byte) {
      break;
    }
    if (!is_dummy_entry(mapping) && mapping.bit_length > 0) {
      fields.push_back({object_name(&node, mapping.index, mapping.sub_index), mapping.bit_length,
                        bits_of(word, offset, mapping.bit_length)});
    }
    offset = end;
  }
  return fields;
}

std::size_t mapped_bytes(const PdoConfig& pdo) {
  const std::size_t bits = std::accumulate(
      pdo.mappings.begin(), pdo.mappings.end(), std::size_t{0},
      [](std::size_t sum, const PdoMapping& mapping) { return sum + mapping.bit_length; });
  return (bits + bits_per_byte - 1) / bits_per_byte;
}

std::uint8_t node_of(const CanFrame& frame) {
  return static_cast<std::uint8_t>(frame.id & highest_node_id);
}

}  // namespace

TrafficDecoder::TrafficDecoder(const BoardFile& file) {
  for (const NodeConfig& node : file.nodes) {
    if (is_node_id(node.node_id)) {
      nodes_.at(node.node_id).config = &node;
    }
    add_pdos(node, false);
  }
  for (const NodeConfig& node : file.nodes) {
    add_pdos(node, true);
  }
}

void TrafficDecoder::add_pdos(const NodeConfig& node, bool rpdos) {
  for (const PdoConfig& pdo : node.board.pdos) {
    const std::uint16_t cob_id = cob_id_of(node.node_id, pdo);
    if (cob_id != 0 && is_rpdo(pdo) == rpdos) {
      pdos_.push_back({cob_id, &node, &pdo});
    }
  }
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
  if (!is_node_id(node_of(decoded.frame))) {
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
    decoded.problem = hex_u8(decoded.frame.data[1]) + " is no node id";
  }
}

void TrafficDecoder::decode_heartbeat(DecodedFrame& decoded) {
  decoded.kind = TrafficKind::heartbeat;
  set_node(decoded, node_of(decoded.frame));
  if (!has_length(decoded, 1, "a heartbeat")) {
    return;
  }
  Node& node = nodes_.at(decoded.node_id);
  const auto state = NmtState{static_cast<std::uint8_t>(decoded.frame.data[0] & state_mask)};
  const bool has_changed = std::exchange(node.state, state) != state;
  decoded.content = HeartbeatContent{state, has_changed};
  if (state == NmtState::boot_up) {
    decoded.kind = TrafficKind::boot_up;
    node.sdo.reset();
  }
}

void TrafficDecoder::decode_emergency(DecodedFrame& decoded) const {
  decoded.kind = TrafficKind::emergency;
  set_node(decoded, node_of(decoded.frame));
  const auto& data = decoded.frame.data;
  if (!has_length(decoded, data.size(), "an emergency")) {
    return;
  }
  EmergencyContent emergency;
  emergency.error_code = static_cast<std::uint16_t>(data[0] | (data[1] << 8U));
  emergency.error_register = data[2];
  std::copy(data.begin() + 3, data.end(), emergency.device_data.begin());
  decoded.content = emergency;
}

void TrafficDecoder::decode_sdo(DecodedFrame& decoded, TrafficKind kind) {
  decoded.kind = kind;
  set_node(decoded, node_of(decoded.frame));
  Node& node = nodes_.at(decoded.node_id);
  SdoTrafficContent content;
  content.sdo = kind == TrafficKind::sdo_request ? node.sdo.request(decoded.frame)
                                                 : node.sdo.answer(decoded.frame);
  if (content.sdo.object) {
    content.object =
        object_name(node.config, content.sdo.object->index, content.sdo.object->sub_index);
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
      content.also.push_back(pdo_text(is_rpdo(*pdo.config), pdo.config->number) + " of node " +
                             hex_u8(pdo.node->node_id));
      continue;
    }
    first = &pdo;
  }
  if (first == nullptr) {
    return false;
  }
  decoded.kind = is_rpdo(*first->config) ? TrafficKind::rpdo : TrafficKind::tpdo;
  decoded.node_id = first->node->node_id;
  const std::size_t needed = mapped_bytes(*first->config);
  if (decoded.frame.length != needed) {
    decoded.problem =
        bytes_text(decoded.frame.length) + ", the mapping needs " + std::to_string(needed);
  }
  content.number = first->config->number;
  content.fields = fields_of(*first->node, *first->config, decoded.frame);
  decoded.content = std::move(content);
  return true;
}

/// A PDO that the board file does not hold, by the predefined connection set: TPDO 1 from 0x180 on,
/// RPDO 1 from 0x200 on, TPDO 2 from 0x280 on, to RPDO 4.
void TrafficDecoder::decode_predefined_pdo(DecodedFrame& decoded) const {
  const std::uint16_t id = decoded.frame.id;
  const std::uint8_t node_id = node_of(decoded.frame);
  if (id < first_pdo_cob_id || id > last_pdo_cob_id || !is_node_id(node_id)) {
    return;
  }
  const bool rpdo = (id & 0x80U) == 0;
  PdoContent content;
  content.number = static_cast<std::uint8_t>((id - 0x80U) >> 8U);
  const NodeConfig* const node = nodes_.at(node_id).config;
  if (node != nullptr && find_pdo(node->board, content.number, rpdo ? "RPDO" : "TPDO") != nullptr) {
    return;  // that PDO has another COB-ID
  }
  decoded.kind = rpdo ? TrafficKind::rpdo : TrafficKind::tpdo;
  set_node(decoded, node_id);
  decoded.problem = node == nullptr ? "" : "not in the board file";
  decoded.content = std::move(content);
}

void TrafficDecoder::set_node(DecodedFrame& decoded, std::uint8_t node_id) const {
  decoded.node_id = node_id;
  decoded.is_node_known = node_id == 0 || nodes_.at(node_id).config != nullptr;
}

}  // namespace velmora_can_bridge
