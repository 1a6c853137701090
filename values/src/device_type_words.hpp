// What a node says that it is.
#pragma once

#include <cstdint>
#include <string>

namespace velmora_can_bridge {

/// Of object 0x1000 (CiA 301, 7.5.2.1): "CiA 402 drive, servo". "no standard profile" for profile
/// 0.
std::string device_type_words(std::uint32_t device_type);

}  // namespace velmora_can_bridge
