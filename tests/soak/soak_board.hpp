// The board of the soak: 127 nodes, and what each thread owns of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "soak_settings.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge::soak {

// Objects with a sub-index for each thread: the first thread has sub-index 1.

/// u16; those of the first four threads in RPDO 1, of the others in RPDO 2.
inline constexpr std::uint16_t field_object = 0x2000;
/// u32, by SDO alone.
inline constexpr std::uint16_t word_object = 0x2100;
/// A text, by segmented SDO; `start_text` at the start.
inline constexpr std::uint16_t text_object = 0x2200;
/// u16; those of the first four threads in RPDO 5, the others by SDO.
inline constexpr std::uint16_t pump_object = 0x2400;

// One for a node; its thread is `owner`.

/// Colour (3 bytes), mode (1) and period (2) of an LED: sub-indices 1 to 3, in RPDO 3.
inline constexpr std::uint16_t led_object = 0x2300;
/// Two bytes in RPDO 3, in which each thread has a bit: sub-indices 1 and 2.
inline constexpr std::uint16_t bits_object = 0x2310;
/// A drive with controlword and target velocity in RPDO 4.
inline constexpr std::uint16_t drive_base = 0x6040;
inline constexpr std::uint16_t claw_base = 0x6840;
inline constexpr std::uint16_t homing_record = 0x2500;

inline constexpr std::uint8_t rpdos = 5;
inline constexpr std::uint8_t led_rpdo = 3;
inline constexpr std::uint8_t drive_rpdo = 4;
inline constexpr std::uint8_t drive_interval = 8;

/// Whether the node has a drive and a claw, the RPDO of the drive, and TPDOs. These take much of
/// the processor with every millisecond, so that few nodes have them.
inline bool has_drive(std::uint8_t node_id) { return node_id % drive_interval == 0; }

/// What of a node one thread alone commands.
enum class Owned : std::uint8_t { led, drive, claw };

inline std::size_t owner(std::uint8_t node_id, Owned owned) {
  return (node_id / drive_interval + static_cast<std::size_t>(owned)) % threads;
}

inline std::uint8_t sub_index_of(std::size_t thread) {
  return static_cast<std::uint8_t>(thread + 1);
}

/// "drive_5" for "drive" of node 5.
std::string device_of(const char* name, std::uint8_t node_id);

/// COB-ID of an RPDO of the node.
std::uint16_t rpdo_cob_id(std::uint8_t rpdo, std::uint8_t node_id);

BoardFile soak_board();

/// Adds the objects that no device and no PDO brings.
void add_objects(SimulatedNode& node);

/// `value` in `size` bytes, the low one first.
Bytes bytes_of(std::uint32_t value, std::size_t size);

inline constexpr std::size_t longest_text = 60;

/// As long as any: what a node holds grows by no write.
Bytes start_text();

/// Up to 4 bytes as a number.
std::uint32_t number_of(const Bytes& bytes);

/// A number of so many bits that tells who wrote it, and as the how manieth: its highest four bits
/// are the thread's sub-index, so it is never 0, which is what a node starts with.
std::uint32_t signed_number(std::size_t thread, std::uint32_t sequence, unsigned bits);

}  // namespace velmora_can_bridge::soak
