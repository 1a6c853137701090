#include "velmora_can_bridge/simulator/sdo_server.hpp"

#include <algorithm>
#include <utility>

#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/sdo_frames.hpp"

namespace velmora_can_bridge {
namespace {

constexpr unsigned unused_expedited_shift = 2;
constexpr unsigned unused_segment_shift = 1;

bool has(const CanFrame& frame, std::uint8_t bit) { return (frame.data[0] & bit) != 0; }

unsigned toggle(bool is_set) { return is_set ? sdo_toggle_bit : 0U; }

ObjectAddress multiplexer(const CanFrame& frame) {
  return {sdo_index(frame), sdo_sub_index(frame)};
}

}  // namespace

SdoServer::SdoServer(std::uint8_t node_id, UploadFunction upload, DownloadFunction download,
                     std::size_t most_bytes)
    : node_id_(node_id),
      upload_(std::move(upload)),
      download_(std::move(download)),
      most_bytes_(most_bytes) {}

std::optional<CanFrame> SdoServer::answer(const CanFrame& request) {
  if (request.length < sdo_request_length(request) || request.length > sdo_frame_length) {
    return std::nullopt;
  }
  return (this->*event_of(request))(request);
}

void SdoServer::reset() { transfer_ = std::monostate{}; }

SdoServer::Event SdoServer::event_of(const CanFrame& request) {
  // By the client command specifier, bits 5 to 7. 5 and 6 are block transfers, 7 is none.
  static constexpr Event events[] = {
      &SdoServer::download_segment, &SdoServer::initiate_download, &SdoServer::initiate_upload,
      &SdoServer::upload_segment,   &SdoServer::client_abort,      &SdoServer::unknown_command,
      &SdoServer::unknown_command,  &SdoServer::unknown_command,
  };
  return events[request.data[0] >> 5U];
}

SdoServer::Answer SdoServer::initiate_upload(const CanFrame& request) {
  reset();
  const ObjectAddress at = multiplexer(request);
  bytes_.clear();
  if (const std::optional<SdoAbort> abort = upload_(at.index, at.sub_index, bytes_)) {
    return abort_frame(at, *abort);
  }
  return begin_upload(at);
}

SdoServer::Answer SdoServer::begin_upload(ObjectAddress at) {
  const bool is_expedited = !bytes_.empty() && bytes_.size() <= sdo_expedited_bytes;
  if (is_expedited) {
    const auto unused = static_cast<unsigned>(sdo_expedited_bytes - bytes_.size());
    CanFrame frame = answer_frame(
        sdo_upload_answer | sdo_expedited_bit | sdo_size_bit | unused << unused_expedited_shift,
        at);
    set_sdo_number(frame, sdo_number_of(bytes_));
    return frame;
  }
  CanFrame frame = answer_frame(sdo_upload_answer | sdo_size_bit, at);
  set_sdo_number(frame, static_cast<std::uint32_t>(bytes_.size()));
  transfer_ = Upload{at, std::move(bytes_)};
  return frame;
}

SdoServer::Answer SdoServer::upload_segment(const CanFrame& request) {
  auto* const upload = std::get_if<Upload>(&transfer_);
  if (upload == nullptr) {
    return end_with(SdoAbort::unknown_command);
  }
  if (has(request, sdo_toggle_bit) != upload->toggle) {
    return end_with(SdoAbort::toggle_not_alternated);
  }
  return send_segment(*upload);
}

SdoServer::Answer SdoServer::send_segment(Upload& upload) {
  const std::size_t left = upload.bytes.size() - upload.sent;
  const std::size_t length = std::min(left, sdo_segment_bytes);
  const auto unused = static_cast<unsigned>(sdo_segment_bytes - length);
  CanFrame frame = answer_frame(sdo_upload_segment_answer | toggle(upload.toggle) |
                                unused << unused_segment_shift |
                                (length == left ? unsigned{sdo_last_segment_bit} : 0U));
  std::copy_n(upload.bytes.data() + upload.sent, length, frame.data.begin() + 1);
  upload.sent += length;
  upload.toggle = !upload.toggle;
  if (length == left) {
    reset();
  }
  return frame;
}

SdoServer::Answer SdoServer::initiate_download(const CanFrame& request) {
  reset();
  const ObjectAddress at = multiplexer(request);
  const bool is_sized = has(request, sdo_size_bit);
  if (!has(request, sdo_expedited_bit)) {
    return begin_download(at, is_sized ? std::make_optional(sdo_number(request)) : std::nullopt);
  }
  const auto* const begin = request.data.data() + sdo_object_bytes;
  bytes_.assign(begin, begin + sdo_expedited_size(request));
  const std::optional<SdoAbort> abort =
      is_sized ? download_(at.index, at.sub_index, bytes_) : download_as_much_as_fits(at);
  return abort ? abort_frame(at, *abort) : confirm_download(at);
}

std::optional<SdoAbort> SdoServer::download_as_much_as_fits(ObjectAddress at) {
  std::optional<SdoAbort> abort = download_(at.index, at.sub_index, bytes_);
  while (abort == SdoAbort::value_too_long && bytes_.size() > 1) {
    bytes_.pop_back();
    abort = download_(at.index, at.sub_index, bytes_);
  }
  return abort;
}

SdoServer::Answer SdoServer::begin_download(ObjectAddress at, std::optional<std::uint32_t> size) {
  if (size && *size > most_bytes_) {
    return abort_frame(at, SdoAbort::out_of_memory);
  }
  transfer_ = Download{at, size, {}};
  return confirm_download(at);
}

SdoServer::Answer SdoServer::download_segment(const CanFrame& request) {
  auto* const download = std::get_if<Download>(&transfer_);
  if (download == nullptr) {
    return end_with(SdoAbort::unknown_command);
  }
  if (has(request, sdo_toggle_bit) != download->toggle) {
    return end_with(SdoAbort::toggle_not_alternated);
  }
  const std::size_t length = sdo_segment_size(request);
  const std::size_t new_size = download->bytes.size() + length;
  if (new_size > download->size.value_or(most_bytes_)) {
    return end_with(download->size ? SdoAbort::wrong_length : SdoAbort::out_of_memory);
  }
  const auto* const begin = request.data.data() + 1;
  download->bytes.insert(download->bytes.end(), begin, begin + length);
  if (has(request, sdo_last_segment_bit)) {
    return complete_download();
  }
  download->toggle = !download->toggle;
  return answer_frame(sdo_download_segment_answer | toggle(!download->toggle));
}

SdoServer::Answer SdoServer::complete_download() {
  const Download download = std::move(*std::get_if<Download>(&transfer_));
  reset();
  const bool is_short = download.size && *download.size != download.bytes.size();
  if (is_short) {
    return abort_frame(download.at, SdoAbort::wrong_length);
  }
  const ObjectAddress at = download.at;
  if (const auto abort = download_(at.index, at.sub_index, download.bytes)) {
    return abort_frame(at, *abort);
  }
  return answer_frame(sdo_download_segment_answer | toggle(download.toggle));
}

SdoServer::Answer SdoServer::client_abort(const CanFrame& /*request*/) {
  reset();
  return std::nullopt;
}

SdoServer::Answer SdoServer::unknown_command(const CanFrame& request) {
  if (!is_in_transfer()) {
    return abort_frame(multiplexer(request), SdoAbort::unknown_command);
  }
  return end_with(SdoAbort::unknown_command);
}

CanFrame SdoServer::confirm_download(ObjectAddress at) const {
  return answer_frame(sdo_download_answer, at);
}

CanFrame SdoServer::abort_frame(ObjectAddress at, SdoAbort abort) const {
  CanFrame frame = answer_frame(sdo_abort_command, at);
  set_sdo_number(frame, static_cast<std::uint32_t>(abort));
  return frame;
}

/// Ends the transfer under way, if there is one.
CanFrame SdoServer::end_with(SdoAbort abort) {
  ObjectAddress at;
  if (const auto* const upload = std::get_if<Upload>(&transfer_)) {
    at = upload->at;
  } else if (const auto* const download = std::get_if<Download>(&transfer_)) {
    at = download->at;
  }
  reset();
  return abort_frame(at, abort);
}

CanFrame SdoServer::answer_frame(unsigned command, ObjectAddress at) const {
  const auto cob_id = static_cast<std::uint16_t>(sdo_answer_cob_id + node_id_);
  return sdo_frame(cob_id, static_cast<std::uint8_t>(command), at.index, at.sub_index);
}

}  // namespace velmora_can_bridge
