#include "node_facts.hpp"

#include <algorithm>
#include <cstdint>

#include "ground/drive_objects.hpp"
#include "record_access.hpp"
#include "record_readers.hpp"

namespace velmora_can_bridge {
namespace {

bool knows_all_keys(const YamlValue& node) {
  return node.type == YamlType::map &&
         std::all_of(node.entries.begin(), node.entries.end(),
                     [](const YamlEntry& entry) { return is_node_key(entry.key()); });
}

bool is_possible_pdo(const YamlValue& pdo) {
  constexpr std::size_t most_mappings = 64;
  return is_readable_pdo(pdo) && elements_at(pdo, "mappings").size() <= most_mappings;
}

bool knows_all_pdos(const YamlValue& node) {
  // Numbers 1 to 255 in each direction.
  constexpr std::size_t most_pdos = 510;
  const YamlValue* const pdos = node.find("pdos");
  if (pdos == nullptr) {
    return true;
  }
  return pdos->type == YamlType::list && pdos->elements.size() <= most_pdos &&
         std::all_of(pdos->elements.begin(), pdos->elements.end(),
                     [](const YamlValue* pdo) { return is_possible_pdo(*pdo); });
}

bool knows_all_devices(const YamlValue& node) {
  const YamlValue* const devices = node.find("device_od_map");
  if (devices == nullptr) {
    return true;
  }
  return devices->type == YamlType::map &&
         std::all_of(devices->entries.begin(), devices->entries.end(),
                     [](const YamlEntry& entry) { return is_readable_device(*entry.value); });
}

std::vector<NamedDevice> readable_devices(const YamlValue& source, const NodeConfig& node) {
  std::vector<NamedDevice> devices;
  for (const YamlEntry& entry : entries_at(source, "device_od_map")) {
    const auto found = node.board.device_od_map.find(std::string(entry.key()));
    if (found != node.board.device_od_map.end() && is_readable_device(*entry.value)) {
      devices.push_back({&entry, &found->second});
    }
  }
  return devices;
}

std::string of_device(std::string_view object, const NamedDevice& device) {
  return "the " + std::string(object) + " of " + quoted(device.name());
}

void add_objects_of_drive(const NamedDevice& device,
                          std::map<ValueAddress, ProfileObject>& objects) {
  for (const DriveObjectRow& row : drive_objects) {
    objects.emplace(ValueAddress{drive_index(*device.device, row.object), 0},
                    ProfileObject{row.length, true, row.is_writable, true, row.is_signed,
                                  of_device(row.name, device)});
  }
}

void add_objects_of_claw(const NamedDevice& device,
                         std::map<ValueAddress, ProfileObject>& objects) {
  for (const ClawObjectRow& row : claw_objects) {
    objects.emplace(
        ValueAddress{device.device->homing_record, static_cast<std::uint8_t>(row.object)},
        ProfileObject{row.length, !row.is_writable, row.is_writable, false, false,
                      of_device(row.name, device)});
  }
}

std::map<ValueAddress, ProfileObject> objects_of(const std::vector<NamedDevice>& devices) {
  std::map<ValueAddress, ProfileObject> objects;
  for (const NamedDevice& device : devices) {
    const std::uint16_t base = device.device->base_index;
    const std::uint16_t controlword = controlword_near(base);
    const bool is_misplaced = controlword != 0 && controlword != base;
    if (is_drive(*device.device) && !is_misplaced) {
      add_objects_of_drive(device, objects);
    }
    if (is_claw(*device.device)) {
      add_objects_of_claw(device, objects);
    }
  }
  return objects;
}

}  // namespace

std::uint16_t controlword_near(std::uint16_t index) {
  constexpr unsigned profile_begin = 0x6000;
  constexpr unsigned profile_end = 0xA000;
  constexpr unsigned axis_size = 0x800;
  constexpr unsigned controlword_offset = 0x40;
  if (index < profile_begin || index >= profile_end) {
    return 0;
  }
  return static_cast<std::uint16_t>(index - (index - profile_begin) % axis_size +
                                    controlword_offset);
}

NodeFacts::NodeFacts(const YamlValue& node_source, const NodeConfig& node_config)
    : source(node_source),
      node(node_config),
      has_known_keys(knows_all_keys(source)),
      knows_pdos(has_known_keys && knows_all_pdos(source)),
      knows_devices(has_known_keys && knows_all_devices(source)),
      devices(readable_devices(source, node)),
      device_objects(objects_of(devices)) {}

}  // namespace velmora_can_bridge
