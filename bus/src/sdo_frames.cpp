#include "velmora_can_bridge/bus/sdo_frames.hpp"

#include "ground/little_endian.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t number_position = 4;
constexpr std::size_t number_bytes = 4;

}  // namespace

CanFrame sdo_frame(std::uint16_t cob_id, std::uint8_t first_byte, std::uint16_t index,
                   std::uint8_t sub_index) {
  CanFrame frame{cob_id, sdo_frame_length, {first_byte, 0, 0, sub_index}};
  put_little_endian(frame.data.begin() + 1, sizeof(index), index);
  return frame;
}

std::uint16_t sdo_index(const CanFrame& frame) {
  return static_cast<std::uint16_t>(
      little_endian_number(frame.data.begin() + 1, sizeof(std::uint16_t)));
}

std::uint32_t sdo_number(const CanFrame& frame) {
  return static_cast<std::uint32_t>(
      little_endian_number(frame.data.begin() + number_position, number_bytes));
}

void set_sdo_number(CanFrame& frame, std::uint32_t number) {
  put_little_endian(frame.data.begin() + number_position, number_bytes, number);
}

std::uint32_t sdo_number_of(const std::vector<std::uint8_t>& bytes) {
  return static_cast<std::uint32_t>(little_endian_number(bytes));
}

}  // namespace velmora_can_bridge
