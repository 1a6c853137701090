// SDO transfers between others, followed frame by frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// What one SDO frame does.
enum class SdoStep : std::uint8_t {
  // Requests of the client.
  read,
  write,
  write_in_segments,
  next_segment,
  // Answers of the node.
  value,
  value_in_segments,
  ready_for_segments,
  segment_taken,
  done,
  // Either side.
  segment,
  last_segment,
  abort,
  /// Part of a block transfer, which is not looked into.
  block,
  /// None of the above.
  unknown,
};

/// One SDO frame, and what those before tell of it.
struct SdoContent {
  struct Object {
    std::uint16_t index = 0;
    std::uint8_t sub_index = 0;
  };

  SdoStep step = SdoStep::unknown;
  /// No value in a segment of a transfer whose beginning was not seen.
  std::optional<Object> object{};
  /// The data in the frame itself.
  std::vector<std::uint8_t> bytes{};
  /// Bytes of the whole value, where the frame or the end of the transfer tells them.
  std::optional<std::size_t> size{};
  /// Of `last_segment`: the whole value, as far as `SdoTraffic::kept_bytes` goes.
  std::vector<std::uint8_t> whole{};
  std::uint32_t abort_code = 0;
  /// What is odd about the frame, in a few words.
  std::optional<std::string> problem{};
};

/// Follows the transfers of one node (CiA 301, 7.2.4.3), which come one after another.
///
/// May begin in the middle of a transfer. A value that goes in segments is put together for its
/// last segment.
class SdoTraffic {
 public:
  /// Of a longer value only the beginning is kept.
  static constexpr std::size_t kept_bytes = 256;

  /// A frame from the client to the node.
  SdoContent request(const CanFrame& frame);

  /// A frame from the node.
  SdoContent answer(const CanFrame& frame);

  /// The node has started: what was under way is over.
  void reset() { *this = {}; }

 private:
  struct Transfer {
    SdoContent::Object at;
    bool is_upload = false;
    bool is_segmented = false;
    std::optional<std::size_t> announced;
    bool toggle = false;
    bool is_complete = false;
    std::size_t size = 0;
    std::vector<std::uint8_t> kept;

    void append(const std::vector<std::uint8_t>& bytes);
  };
  enum class Block : std::uint8_t { none, upload, download };

  SdoContent begin_read(const CanFrame& frame);
  SdoContent begin_write(const CanFrame& frame);
  SdoContent begin_block(const CanFrame& frame, Block block);
  SdoContent take_value(const CanFrame& frame);
  SdoContent confirm_write(const CanFrame& frame);
  SdoContent confirm_segment();
  SdoContent take_segment(const CanFrame& frame, bool is_upload);
  void complete(SdoContent& segment);
  SdoContent take_abort(const CanFrame& frame);
  SdoContent of_transfer(SdoStep step, bool is_upload) const;
  bool follow_block(const CanFrame& frame, Block data_from_other_side);

  std::optional<Transfer> transfer_;
  Block block_ = Block::none;
};

}  // namespace velmora_can_bridge
