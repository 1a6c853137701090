// The modes of operation of CiA 402-2 as codes.
#pragma once

#include <string>
#include <vector>

#include "ground/drive_objects.hpp"
#include "velmora_can_bridge/config/value_description.hpp"

namespace velmora_can_bridge {

inline std::vector<NamedCode> named_drive_modes() {
  std::vector<NamedCode> modes;
  for (const DriveModeRow& row : drive_modes) {
    modes.push_back({std::string(row.name), Count::of(row.mode)});
  }
  return modes;
}

}  // namespace velmora_can_bridge
