#include "node_objects.hpp"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "device_objects.hpp"
#include "ground/little_endian.hpp"
#include "ground/pdo.hpp"
#include "node_parameters.hpp"
#include "pdo_parameters.hpp"

namespace velmora_can_bridge {
namespace {

/// What the PDOs say about one object.
struct MappedObject {
  bool received = false;
  std::size_t size = 0;
};

using MappedObjects = std::map<std::pair<std::uint16_t, std::uint8_t>, MappedObject>;

// Ordered by name, so that two devices that claim one object always come out the same.
using Devices = std::map<std::string, DeviceOdEntry>;

Devices devices_of(const BoardConfig& board) {
  return {board.device_od_map.begin(), board.device_od_map.end()};
}

/// Adds an object of `size` bytes, unless there is one already.
void offer(ObjectDictionary& dictionary, ObjectAddress at, ObjectAccess access, std::size_t size,
           std::int64_t value = 0) {
  if (dictionary.find(at.index, at.sub_index) == nullptr) {
    dictionary.add(at.index, at.sub_index,
                   {access, little_endian_bytes(static_cast<std::uint64_t>(value), size)});
  }
}

/// Object 0x1000: bits 0 to 15 the profile, here CiA 402, bits 16 to 23 its servo drives; 0 for a
/// node without a drive.
std::vector<std::uint8_t> device_type(const Devices& devices) {
  constexpr std::uint32_t servo_drive = 0x00020192;
  const bool has_drive = std::any_of(devices.begin(), devices.end(),
                                     [](const auto& device) { return is_drive(device.second); });
  return little_endian_bytes(has_drive ? servo_drive : 0, 4);
}

void add_node_objects(ObjectDictionary& dictionary, std::uint8_t node_id, const Devices& devices) {
  constexpr auto read_only = ObjectAccess::read_only;
  constexpr std::string_view name = "Simulated node";
  dictionary.add(0x1000, 0, {read_only, device_type(devices)});
  dictionary.add(0x1001, 0, {read_only, {0}});  // error register
  dictionary.add(0x1005, 0, {ObjectAccess::read_write, {sync_cob_id, 0, 0, 0}});
  dictionary.add(0x1008, 0, {read_only, {name.begin(), name.end()}, true});  // device name
  dictionary.add(0x1018, 1, {read_only, {0, 0, 0, 0}});                      // vendor id
  dictionary.add(0x1018, 2, {read_only, {0, 0, 0, 0}});                      // product code
  dictionary.add(0x1018, 3, {read_only, {1, 0, 0, 0}});                      // revision
  dictionary.add(0x1018, 4, {read_only, {node_id, 0, 0, 0}});                // serial number
}

void add_drives(ObjectDictionary& dictionary, const Devices& devices) {
  for (const auto& [name, device] : devices) {
    for (const DeviceObjectRow& row : device_objects(device)) {
      offer(dictionary, row.at, row.access, row.size, row.start_value);
    }
  }
}

void note_mappings(MappedObjects& mapped, const PdoConfig& pdo) {
  for (const PdoMapping& mapping : pdo.mappings) {
    if (!carries_object(mapping)) {
      continue;
    }
    MappedObject& object = mapped[{mapping.index, mapping.sub_index}];
    object.received = object.received || is_rpdo(pdo);
    object.size = std::max(object.size, bytes_for_bits(mapping.bit_length));
  }
}

MappedObjects mapped_objects(const BoardConfig& board) {
  MappedObjects mapped;
  for (const PdoConfig& pdo : board.pdos) {
    note_mappings(mapped, pdo);
  }
  return mapped;
}

void add_mapped_objects(ObjectDictionary& dictionary, const MappedObjects& mapped) {
  for (const auto& [at, object] : mapped) {
    const auto access = object.received ? ObjectAccess::read_write : ObjectAccess::read_only;
    offer(dictionary, {at.first, at.second}, access, object.size);
  }
}

/// Bytes of the largest mapped sub-index of `index` above 0; 0 when none is mapped.
std::size_t largest_mapped(const MappedObjects& mapped, std::uint16_t index) {
  std::size_t largest = 0;
  for (auto at = mapped.lower_bound({index, 1}); at != mapped.end() && at->first.first == index;
       ++at) {
    largest = std::max(largest, at->second.size);
  }
  return largest;
}

void add_io_record(ObjectDictionary& dictionary, const MappedObjects& mapped,
                   std::uint16_t base_index) {
  constexpr std::uint8_t channels = 8;
  const std::size_t largest = largest_mapped(mapped, base_index);
  const bool is_plain_variable = largest == 0 && dictionary.find(base_index, 0) != nullptr;
  if (is_plain_variable) {
    return;
  }
  const std::size_t size = std::max<std::size_t>(largest, 1);
  for (std::uint8_t channel = 1; channel <= channels; ++channel) {
    offer(dictionary, {base_index, channel}, ObjectAccess::read_write, size);
  }
}

void add_io_records(ObjectDictionary& dictionary, const MappedObjects& mapped,
                    const Devices& devices) {
  for (const auto& [name, device] : devices) {
    if (!is_drive(device)) {
      add_io_record(dictionary, mapped, device.base_index);
    }
  }
}

void add_highest_sub_indices(ObjectDictionary& dictionary) {
  std::map<std::uint16_t, std::uint8_t> highest;
  for (const ObjectAddress& at : dictionary.addresses()) {
    highest[at.index] = at.sub_index;
  }
  for (const auto& [index, sub_index] : highest) {
    if (dictionary.find(index, 0) == nullptr) {
      dictionary.add(index, 0, {ObjectAccess::read_only, {sub_index}});
    }
  }
}

}  // namespace

ObjectDictionary communication_objects(std::uint8_t node_id, const BoardConfig& board) {
  ObjectDictionary dictionary;
  add_node_objects(dictionary, node_id, devices_of(board));
  add_node_parameters(dictionary, node_id);
  add_pdo_parameters(dictionary, node_id, board);
  return dictionary;
}

ObjectDictionary node_objects(std::uint8_t node_id, const BoardConfig& board) {
  const Devices devices = devices_of(board);
  const MappedObjects mapped = mapped_objects(board);
  ObjectDictionary dictionary = communication_objects(node_id, board);
  add_drives(dictionary, devices);
  add_mapped_objects(dictionary, mapped);
  add_io_records(dictionary, mapped, devices);
  add_highest_sub_indices(dictionary);
  return dictionary;
}

}  // namespace velmora_can_bridge
