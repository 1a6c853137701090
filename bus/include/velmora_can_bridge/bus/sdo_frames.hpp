/// Frames of SDO transfers (CiA 301, 7.2.4.3): commands, multiplexer and bits of their first bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

inline constexpr std::uint8_t sdo_frame_length = 8;

/// The command specifier, in the upper three bits of the first byte.
inline constexpr std::uint8_t sdo_command_mask = 0xE0;
inline constexpr std::uint8_t sdo_download_segment_request = 0x00;
inline constexpr std::uint8_t sdo_download_request = 0x20;
inline constexpr std::uint8_t sdo_upload_request = 0x40;
inline constexpr std::uint8_t sdo_upload_segment_request = 0x60;
inline constexpr std::uint8_t sdo_upload_segment_answer = 0x00;
inline constexpr std::uint8_t sdo_download_segment_answer = 0x20;
inline constexpr std::uint8_t sdo_upload_answer = 0x40;
inline constexpr std::uint8_t sdo_download_answer = 0x60;
inline constexpr std::uint8_t sdo_abort_command = 0x80;

/// Of segments: alternates from one to the next, beginning with 0.
inline constexpr std::uint8_t sdo_toggle_bit = 0x10;
/// Of segments: no more follow.
inline constexpr std::uint8_t sdo_last_segment_bit = 0x01;
/// Of the first request or answer: the data are in the frame itself.
inline constexpr std::uint8_t sdo_expedited_bit = 0x02;
/// Of the first request or answer: the size is told.
inline constexpr std::uint8_t sdo_size_bit = 0x01;

/// First byte and multiplexer, where a frame names an object.
inline constexpr std::size_t sdo_object_bytes = 4;
inline constexpr std::size_t sdo_expedited_bytes = 4;
inline constexpr std::size_t sdo_segment_bytes = 7;

inline std::uint8_t sdo_command(const CanFrame& frame) {
  return static_cast<std::uint8_t>(frame.data[0] & sdo_command_mask);
}

/// A frame with a first byte and a multiplexer; the other bytes are 0.
CanFrame sdo_frame(std::uint16_t cob_id, std::uint8_t first_byte, std::uint16_t index,
                   std::uint8_t sub_index);

std::uint16_t sdo_index(const CanFrame& frame);

inline std::uint8_t sdo_sub_index(const CanFrame& frame) { return frame.data[3]; }

/// The number in the last four bytes: a size or an abort code.
std::uint32_t sdo_number(const CanFrame& frame);

void set_sdo_number(CanFrame& frame, std::uint32_t number);

/// The bytes of an expedited transfer, 4 at most, as the number that `set_sdo_number` takes.
std::uint32_t sdo_number_of(const std::vector<std::uint8_t>& bytes);

/// Bytes of an expedited answer or request. One that tells no size has all four, or as many as its
/// frame has.
inline std::size_t sdo_expedited_size(const CanFrame& frame) {
  if ((frame.data[0] & sdo_size_bit) != 0) {
    return sdo_expedited_bytes - ((frame.data[0] >> 2U) & 0x03U);
  }
  return std::clamp<std::size_t>(frame.length, sdo_object_bytes, sdo_frame_length) -
         sdo_object_bytes;
}

/// Data bytes of a segment.
inline std::size_t sdo_segment_size(const CanFrame& frame) {
  return sdo_segment_bytes - ((frame.data[0] >> 1U) & 0x07U);
}

/// The fewest bytes that can hold a first request or answer with the size or value that it tells.
inline std::size_t sdo_initiate_length(const CanFrame& frame) {
  const bool has_size = (frame.data[0] & sdo_size_bit) != 0;
  if (!has_size) {
    return sdo_object_bytes;
  }
  const bool is_expedited = (frame.data[0] & sdo_expedited_bit) != 0;
  return is_expedited ? sdo_object_bytes + sdo_expedited_size(frame) : sdo_frame_length;
}

/// The fewest bytes that can hold what the answer tells. All SDO frames have 8 (CiA 301, 7.2.4.3);
/// some devices leave those out that mean nothing.
inline std::size_t sdo_answer_length(const CanFrame& answer) {
  switch (sdo_command(answer)) {
    case sdo_upload_answer:
      return sdo_initiate_length(answer);
    case sdo_download_answer:
      return sdo_object_bytes;
    case sdo_upload_segment_answer:
      return 1 + sdo_segment_size(answer);
    case sdo_download_segment_answer:
      return 1;
    default:
      return sdo_frame_length;
  }
}

/// As `sdo_answer_length`, of a request.
inline std::size_t sdo_request_length(const CanFrame& request) {
  switch (sdo_command(request)) {
    case sdo_download_request:
      return sdo_initiate_length(request);
    case sdo_upload_request:
      return sdo_object_bytes;
    case sdo_download_segment_request:
      return 1 + sdo_segment_size(request);
    case sdo_upload_segment_request:
      return 1;
    default:
      return sdo_frame_length;
  }
}

}  // namespace velmora_can_bridge
