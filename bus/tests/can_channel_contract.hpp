// What every CAN channel has to do, whatever carries its frames.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

struct ChannelCase {
  std::string name;
  /// As the channel's texts name it.
  std::string interface;
  std::function<std::unique_ptr<CanChannel>()> open;
};

inline void PrintTo(const ChannelCase& row, std::ostream* out) { *out << row.name; }

/// Each test program says here which channels it can open.
std::vector<ChannelCase> channels_under_test();

}  // namespace velmora_can_bridge
