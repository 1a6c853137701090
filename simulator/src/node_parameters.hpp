// The objects by which a node tells of its errors, is told when to send what, keeps its parameters
// and watches the host (CiA 301, 7.5.2), and what may be written to them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {

inline constexpr std::uint16_t error_register_index = 0x1001;
inline constexpr std::uint16_t error_history_index = 0x1003;
inline constexpr std::uint16_t sync_cob_id_index = 0x1005;
inline constexpr std::uint16_t store_index = 0x1010;
inline constexpr std::uint16_t restore_index = 0x1011;
inline constexpr std::uint16_t emergency_cob_id_index = 0x1014;
inline constexpr std::uint16_t consumer_heartbeat_index = 0x1016;
inline constexpr std::uint16_t producer_heartbeat_index = 0x1017;
inline constexpr std::uint16_t error_behaviour_index = 0x1029;

/// Of a COB-ID object: the frame is not sent, the PDO not there.
inline constexpr std::uint32_t cob_id_disabled = 0x80000000;

/// Errors that `error_history_index` keeps.
inline constexpr std::uint8_t most_errors = 8;

/// Heartbeats of other nodes that a node can wait for.
inline constexpr std::uint8_t most_consumers = 8;

/// What `error_behaviour_index` sub-index 1 holds: what becomes of an operational node that has
/// lost a heartbeat.
enum class ErrorBehaviour : std::uint8_t { pre_operational = 0, no_change = 1, stopped = 2 };

/// Identifiers that are reserved for NMT, SDO and the like (CiA 301, 7.3.5).
bool is_restricted_cob_id(std::uint32_t cob_id);

/// Adds the objects that every node has, but for those that tell who it is.
void add_node_parameters(ObjectDictionary& objects, std::uint8_t node_id);

/// Why one of these objects does not take `value`, which has the right length; no value when it
/// does, and for any other object.
std::optional<SdoAbort> node_parameter_refusal(const ObjectDictionary& objects, ObjectAddress at,
                                               const std::vector<std::uint8_t>& value);

/// Whether a download of the object is a command that leaves what it holds.
bool is_command_object(ObjectAddress at);

/// Whether an error of that sub-index is not there to be read.
bool is_empty_error(const ObjectDictionary& objects, ObjectAddress at);

/// Puts an error before those that are kept; the oldest makes room.
void keep_error(ObjectDictionary& objects, std::uint32_t error);

/// The heartbeats that the node is to wait for.
std::vector<HeartbeatConsumer> consumers_of(const ObjectDictionary& objects);

}  // namespace velmora_can_bridge
