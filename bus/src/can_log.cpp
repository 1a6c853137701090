#include "velmora_can_bridge/bus/can_log.hpp"

#include <cstddef>
#include <vector>

#include "dispatch/hex_u16.hpp"

namespace velmora_can_bridge {
namespace {

std::string padded(long long number, std::size_t digits) {
  const std::string text = std::to_string(number);
  return std::string(text.size() < digits ? digits - text.size() : 0, '0') + text;
}

}  // namespace

std::string can_log_line(std::chrono::microseconds time, const std::string& interface,
                         const CanFrame& frame) {
  constexpr long long per_second = 1000000;
  std::string line = "(" + padded(time.count() / per_second, 10) + "." +
                     padded(time.count() % per_second, 6) + ") " + interface + " " +
                     hex_u16(frame.id).substr(3) + "#";
  for (std::size_t position = 0; position < frame.length && position < frame.data.size();
       ++position) {
    line += hex_u8(frame.data.at(position)).substr(2);
  }
  return line;
}

}  // namespace velmora_can_bridge
