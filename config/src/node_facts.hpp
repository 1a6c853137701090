// What is certain about a node whose record may have mistakes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// The controlword of the axis of CiA 402 that `index` lies in, 0x6040 for 0x6000 to 0x67FF; 0
/// where there is none.
std::uint16_t controlword_near(std::uint16_t index);

/// An object that means the same on every such node.
struct ProfileObject {
  /// In bytes; 0 for any number of them.
  std::size_t length = 0;
  bool is_readable = true;
  bool is_writable = true;
  /// It belongs to a drive, and no other sub-index stands beside it.
  bool is_of_drive = false;
  bool is_signed = false;
  /// "the statusword of \"wheel\"", as messages call it.
  std::string name;
};

/// A device of a node, and where it stands in the file.
struct NamedDevice {
  const YamlEntry* entry = nullptr;
  const DeviceOdEntry* device = nullptr;

  std::string_view name() const { return entry->key(); }
};

/// A node, where it stands in the file, and which of its parts were read without a mistake. What
/// was not may be anything: a check that needs all PDOs says nothing then.
///
/// Refers to both: they must outlive it.
struct NodeFacts {
  NodeFacts(const YamlValue& node_source, const NodeConfig& node_config);

  const YamlValue& source;
  const NodeConfig& node;
  /// Every key is one that nodes have. Another one may be meant as the key of any part.
  bool has_known_keys;
  /// No PDO is missing or unreadable, and there are no more of anything than a node can have.
  bool knows_pdos;
  /// No device is missing or unreadable.
  bool knows_devices;
  /// Those that could be read, in the order of the file.
  std::vector<NamedDevice> devices;
  /// What the devices have by their profile; of several at one place that of the first. Without
  /// drives that no controlword can be the base of.
  std::map<ValueAddress, ProfileObject> device_objects;
};

}  // namespace velmora_can_bridge
