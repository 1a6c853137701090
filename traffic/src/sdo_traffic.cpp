#include "velmora_can_bridge/traffic/sdo_traffic.hpp"

#include <algorithm>
#include <utility>

#include "ground/number_text.hpp"
#include "velmora_can_bridge/bus/sdo_frames.hpp"

namespace velmora_can_bridge {
namespace {

// Block transfers: the commands by which the client begins one, and all that the side without the
// data sends in it (CiA 301, 7.2.4.3.9 and on).
constexpr std::uint8_t block_upload_command = 0xA0;
constexpr std::uint8_t block_download_command = 0xC0;
constexpr std::uint8_t block_answer_command = 0xA0;
// The lowest two bits of a block command: its step.
constexpr std::uint8_t block_step_mask = 0x03;
constexpr std::uint8_t block_end_step = 0x01;

SdoContent::Object object_of(const CanFrame& frame) {
  return {sdo_index(frame), sdo_sub_index(frame)};
}

SdoContent content(SdoStep step, const CanFrame& frame) {
  SdoContent content;
  content.step = step;
  content.object = object_of(frame);
  return content;
}

SdoContent odd(std::string problem) {
  SdoContent content;
  content.problem = std::move(problem);
  return content;
}

SdoContent block_content() {
  SdoContent content;
  content.step = SdoStep::block;
  return content;
}

SdoContent incomplete(const CanFrame& frame) {
  return odd(std::to_string(frame.length) + (frame.length == 1 ? " byte" : " bytes") +
             ", an SDO frame has 8");
}

bool is_expedited(const CanFrame& frame) { return (frame.data[0] & sdo_expedited_bit) != 0; }

std::vector<std::uint8_t> expedited_bytes(const CanFrame& frame) {
  const auto* const first = frame.data.begin() + sdo_object_bytes;
  return {first, first + sdo_expedited_size(frame)};
}

std::optional<std::size_t> announced_size(const CanFrame& frame) {
  const bool has_size = (frame.data[0] & sdo_size_bit) != 0;
  return has_size ? std::optional<std::size_t>(sdo_number(frame)) : std::nullopt;
}

std::vector<std::uint8_t> segment_bytes(const CanFrame& frame) {
  const auto* const first = frame.data.begin() + 1;
  return {first, first + sdo_segment_size(frame)};
}

}  // namespace

SdoContent SdoTraffic::request(const CanFrame& frame) {
  if (frame.length < sdo_request_length(frame)) {
    return incomplete(frame);
  }
  if (follow_block(frame, Block::upload)) {
    return block_content();
  }
  switch (sdo_command(frame)) {
    case sdo_upload_request:
      return begin_read(frame);
    case sdo_download_request:
      return begin_write(frame);
    case sdo_upload_segment_request:
      return of_transfer(SdoStep::next_segment, true);
    case sdo_download_segment_request:
      return take_segment(frame, false);
    case sdo_abort_command:
      return take_abort(frame);
    case block_upload_command:
      return begin_block(frame, Block::upload);
    case block_download_command:
      return begin_block(frame, Block::download);
    default:
      return odd("unknown SDO command");
  }
}

SdoContent SdoTraffic::answer(const CanFrame& frame) {
  if (frame.length < sdo_answer_length(frame)) {
    return incomplete(frame);
  }
  if (follow_block(frame, Block::download)) {
    return block_content();
  }
  switch (sdo_command(frame)) {
    case sdo_upload_answer:
      return take_value(frame);
    case sdo_download_answer:
      return confirm_write(frame);
    case sdo_upload_segment_answer:
      return take_segment(frame, true);
    case sdo_download_segment_answer:
      return confirm_segment();
    case sdo_abort_command:
      return take_abort(frame);
    case block_upload_command:
    case block_download_command:
      return block_content();
    default:
      return odd("unknown SDO command");
  }
}

SdoContent SdoTraffic::begin_read(const CanFrame& frame) {
  transfer_ = Transfer{};
  transfer_->at = object_of(frame);
  transfer_->is_upload = true;
  return content(SdoStep::read, frame);
}

SdoContent SdoTraffic::begin_write(const CanFrame& frame) {
  transfer_ = Transfer{};
  transfer_->at = object_of(frame);
  if (is_expedited(frame)) {
    SdoContent write = content(SdoStep::write, frame);
    write.bytes = expedited_bytes(frame);
    return write;
  }
  transfer_->is_segmented = true;
  transfer_->announced = announced_size(frame);
  SdoContent write = content(SdoStep::write_in_segments, frame);
  write.size = transfer_->announced;
  return write;
}

SdoContent SdoTraffic::begin_block(const CanFrame& frame, Block block) {
  transfer_.reset();
  const bool ends = (frame.data[0] & block_step_mask) == block_end_step;
  block_ = ends ? Block::none : block;
  return block_content();
}

SdoContent SdoTraffic::take_value(const CanFrame& frame) {
  const bool expedited = is_expedited(frame);
  SdoContent answer = content(expedited ? SdoStep::value : SdoStep::value_in_segments, frame);
  const SdoContent::Object at = *answer.object;
  if (transfer_ && (transfer_->at.index != at.index || transfer_->at.sub_index != at.sub_index)) {
    answer.problem = "asked for was " + object_text(transfer_->at.index, transfer_->at.sub_index);
  }
  if (expedited) {
    answer.bytes = expedited_bytes(frame);
    transfer_.reset();
    return answer;
  }
  answer.size = announced_size(frame);
  transfer_ = Transfer{};
  transfer_->at = at;
  transfer_->is_upload = true;
  transfer_->is_segmented = true;
  transfer_->announced = answer.size;
  return answer;
}

SdoContent SdoTraffic::confirm_write(const CanFrame& frame) {
  const bool goes_on = transfer_ && transfer_->is_segmented && !transfer_->is_upload;
  SdoContent answer = content(goes_on ? SdoStep::ready_for_segments : SdoStep::done, frame);
  const SdoContent::Object at = *answer.object;
  if (transfer_ && (transfer_->at.index != at.index || transfer_->at.sub_index != at.sub_index)) {
    answer.problem = "written was " + object_text(transfer_->at.index, transfer_->at.sub_index);
  }
  if (!goes_on) {
    transfer_.reset();
  }
  return answer;
}

SdoContent SdoTraffic::confirm_segment() {
  SdoContent answer = of_transfer(SdoStep::segment_taken, false);
  if (transfer_ && transfer_->is_complete) {
    answer.step = SdoStep::done;
    transfer_.reset();
  }
  return answer;
}

SdoContent SdoTraffic::take_segment(const CanFrame& frame, bool is_upload) {
  const bool is_last = (frame.data[0] & sdo_last_segment_bit) != 0;
  SdoContent segment = of_transfer(is_last ? SdoStep::last_segment : SdoStep::segment, is_upload);
  segment.bytes = segment_bytes(frame);
  if (!segment.object) {
    return segment;
  }
  const bool toggle = (frame.data[0] & sdo_toggle_bit) != 0;
  if (toggle != transfer_->toggle) {
    segment.step = SdoStep::segment;
    segment.problem = "out of turn: the toggle bit is that of the segment before";
    return segment;
  }
  transfer_->append(segment.bytes);
  if (is_last) {
    complete(segment);
  }
  return segment;
}

void SdoTraffic::Transfer::append(const std::vector<std::uint8_t>& bytes) {
  const std::size_t count = std::min(kept_bytes - kept.size(), bytes.size());
  kept.insert(kept.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
  size += bytes.size();
  toggle = !toggle;
}

/// The last segment has come. A download goes on until the node has confirmed it.
void SdoTraffic::complete(SdoContent& segment) {
  segment.whole = transfer_->kept;
  segment.size = transfer_->size;
  const std::size_t announced = transfer_->announced.value_or(transfer_->size);
  if (announced != transfer_->size) {
    segment.problem = "announced were " + std::to_string(announced) + " bytes, " +
                      std::to_string(transfer_->size) + " came";
  }
  transfer_->is_complete = true;
  if (transfer_->is_upload) {
    transfer_.reset();
  }
}

SdoContent SdoTraffic::take_abort(const CanFrame& frame) {
  transfer_.reset();
  block_ = Block::none;
  SdoContent abort = content(SdoStep::abort, frame);
  abort.abort_code = sdo_number(frame);
  return abort;
}

/// A frame that names no object: it belongs to the transfer under way, if that goes that way.
SdoContent SdoTraffic::of_transfer(SdoStep step, bool is_upload) const {
  SdoContent content;
  content.step = step;
  if (transfer_ && transfer_->is_segmented && transfer_->is_upload == is_upload) {
    content.object = transfer_->at;
  } else {
    content.problem = "its transfer began unseen";
  }
  return content;
}

/// Whether the frame is part of a block transfer. Its sender sends no data in a block transfer of
/// the direction `data_from_other_side`, so that every byte of the frame can be trusted; in one of
/// the other direction the first byte may be a sequence number and looks like any command.
bool SdoTraffic::follow_block(const CanFrame& frame, Block data_from_other_side) {
  if (block_ == Block::none || frame.data[0] == sdo_abort_command) {
    return false;
  }
  if (block_ != data_from_other_side) {
    return true;
  }
  const bool belongs = sdo_command(frame) == block_answer_command;
  const bool ends = (frame.data[0] & block_step_mask) == block_end_step;
  if (!belongs || ends) {
    block_ = Block::none;
  }
  return belongs;
}

}  // namespace velmora_can_bridge
