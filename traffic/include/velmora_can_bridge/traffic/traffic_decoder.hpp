// What the frames on a bus mean to a board file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/nmt_state.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/traffic/object_name.hpp"
#include "velmora_can_bridge/traffic/sdo_traffic.hpp"
#include "velmora_can_bridge/values/value_words.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

enum class TrafficKind : std::uint8_t {
  nmt,
  boot_up,
  heartbeat,
  emergency,
  sync,
  time,
  rpdo,
  tpdo,
  sdo_request,
  sdo_answer,
  /// Nothing that CANopen or the board file knows.
  other,
};

struct NmtContent {
  /// Not always one of `NmtCommand`.
  std::uint8_t command = 0;
};

/// Of `boot_up` and `heartbeat`.
struct HeartbeatContent {
  NmtState state = NmtState::boot_up;
  /// The node's last one was another, or this is its first.
  bool has_changed = false;
};

struct EmergencyContent {
  std::uint16_t error_code = 0;
  std::uint8_t error_register = 0;
  std::array<std::uint8_t, 5> device_data{};
};

/// One mapped object in a PDO frame.
struct DecodedField {
  ObjectName object{};
  std::uint8_t bit_length = 0;
  /// Its bits as an unsigned number.
  std::uint64_t value = 0;
  /// What they say. Its number is always there.
  ValueReading reading{};
};

/// The objects in a frame of the node's PDO, in frame order: those that the frame is long enough
/// for, without dummy entries and those without bits.
std::vector<DecodedField> decoded_fields(const NodeConfig& node, const PdoConfig& pdo,
                                         const CanFrame& frame);

/// Of `rpdo` and `tpdo`.
struct PdoContent {
  std::uint8_t number = 0;
  /// As `decoded_fields`; empty as well when the board file has no such PDO.
  std::vector<DecodedField> fields{};
  /// The other PDOs of the board file with this COB-ID, as "RPDO 2 of node 0x11".
  std::vector<std::string> also{};
};

/// Of `sdo_request` and `sdo_answer`.
struct SdoTrafficContent {
  SdoContent sdo{};
  /// The name of `sdo.object`.
  std::optional<ObjectName> object{};
  /// What the value says that this frame brings, or of whose segments it is the last.
  std::optional<ValueReading> reading{};
};

struct DecodedFrame {
  CanFrame frame{};
  TrafficKind kind = TrafficKind::other;
  /// Whose frame it is; 0: all nodes (`nmt`) or none.
  std::uint8_t node_id = 0;
  /// The board file has that node. True where `node_id` is 0.
  bool is_node_known = true;
  /// None for `sync`, `time` and `other`, and for a frame too short to hold its content.
  std::variant<std::monostate, NmtContent, HeartbeatContent, EmergencyContent, PdoContent,
               SdoTrafficContent>
      content{};
  /// What is odd about the frame, in a few words.
  std::optional<std::string> problem{};
};

/// Tells what frames are: network management, emergencies, PDOs with their fields, SDO transfers.
///
/// Any frame is taken, however odd. Keeps, for each node, the state that it showed last and the SDO
/// transfer under way. PDOs have the COB-IDs of the board file, else the predefined ones
/// (CiA 301, 7.3.5); of a node that the file does not hold the latter. Not thread-safe.
class TrafficDecoder {
 public:
  /// `file` outlives the decoder.
  explicit TrafficDecoder(const BoardFile& file);

  /// Decodes the next frame of the bus; one of more than 8 bytes counts as one of 8.
  DecodedFrame decode(const CanFrame& frame);

 private:
  struct Node {
    const NodeConfig* config = nullptr;
    std::optional<NmtState> state;
    SdoTraffic sdo;
  };
  struct Pdo {
    std::uint16_t cob_id = 0;
    const NodeConfig* node = nullptr;
    const PdoConfig* config = nullptr;
  };

  bool decode_broadcast(DecodedFrame& decoded);
  bool decode_node_service(DecodedFrame& decoded);
  bool decode_mapped_pdo(DecodedFrame& decoded) const;
  void decode_predefined_pdo(DecodedFrame& decoded) const;
  void decode_nmt(DecodedFrame& decoded) const;
  void decode_heartbeat(DecodedFrame& decoded);
  void decode_emergency(DecodedFrame& decoded) const;
  void decode_sdo(DecodedFrame& decoded, TrafficKind kind);
  void set_node(DecodedFrame& decoded, std::uint8_t node_id) const;

  // By node id.
  std::array<Node, highest_node_id + 1> nodes_;
  // Those of the file that have a COB-ID: TPDOs first, so that a frame that one node sends and
  // others receive shows as the sender's.
  std::vector<Pdo> pdos_;
};

}  // namespace velmora_can_bridge
