#include "velmora_can_bridge/simulator/sdo_server.hpp"

#include <algorithm>
#include <utility>

#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t request_length = 8;
constexpr std::size_t expedited_bytes = 4;
constexpr std::size_t segment_bytes = 7;

// Byte 0 of answers.
constexpr unsigned segment_sent = 0x00;
constexpr unsigned segment_confirmed = 0x20;
constexpr unsigned upload_initiated = 0x40;
constexpr unsigned download_confirmed = 0x60;
constexpr unsigned aborted = 0x80;

// Bits of byte 0, in initiate requests and their answers.
constexpr unsigned size_indicated = 0x01;
constexpr unsigned expedited = 0x02;
constexpr unsigned unused_expedited_shift = 2;

// Bits of byte 0, in segments.
constexpr unsigned last_segment = 0x01;
constexpr unsigned unused_segment_shift = 1;
constexpr unsigned toggle_bit = 0x10;

bool has(const CanFrame& frame, unsigned bit) { return (frame.data.front() & bit) != 0; }

ObjectAddress multiplexer(const CanFrame& frame) {
  return {static_cast<std::uint16_t>(frame.data[1] | frame.data[2] << 8U), frame.data[3]};
}

/// Bytes 4 to 7 as a number.
std::uint32_t number(const CanFrame& frame) {
  std::uint32_t value = 0;
  for (std::size_t position = frame.data.size(); position > expedited_bytes; --position) {
    value = value << 8U | frame.data.at(position - 1);
  }
  return value;
}

void set_number(CanFrame& frame, std::uint32_t value) {
  for (std::size_t position = expedited_bytes; position < frame.data.size(); ++position) {
    frame.data.at(position) = static_cast<std::uint8_t>(value & 0xFFU);
    value >>= 8U;
  }
}

/// The bytes of an expedited request; without an indicated size all 4.
std::vector<std::uint8_t> expedited_data(const CanFrame& request) {
  const unsigned unused = request.data.front() >> unused_expedited_shift & 0x03U;
  const std::size_t length =
      has(request, size_indicated) ? expedited_bytes - unused : expedited_bytes;
  const auto* const begin = request.data.data() + expedited_bytes;
  return {begin, begin + length};
}

std::size_t segment_length(const CanFrame& request) {
  return segment_bytes - (request.data.front() >> unused_segment_shift & 0x07U);
}

}  // namespace

SdoServer::SdoServer(std::uint8_t node_id, UploadFunction upload, DownloadFunction download)
    : node_id_(node_id), upload_(std::move(upload)), download_(std::move(download)) {}

std::optional<CanFrame> SdoServer::answer(const CanFrame& request) {
  if (request.length != request_length) {
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
  return events[request.data.front() >> 5U];
}

SdoServer::Answer SdoServer::initiate_upload(const CanFrame& request) {
  reset();
  const ObjectAddress at = multiplexer(request);
  UploadResult result = upload_(at.index, at.sub_index);
  if (const auto* const abort = std::get_if<SdoAbort>(&result)) {
    return abort_frame(at, *abort);
  }
  return begin_upload(at, std::move(*std::get_if<Bytes>(&result)));
}

SdoServer::Answer SdoServer::begin_upload(ObjectAddress at, Bytes bytes) {
  const bool is_expedited = !bytes.empty() && bytes.size() <= expedited_bytes;
  if (is_expedited) {
    const auto unused = static_cast<unsigned>(expedited_bytes - bytes.size());
    CanFrame frame = answer_frame(
        upload_initiated | unused << unused_expedited_shift | expedited | size_indicated, at);
    std::copy(bytes.begin(), bytes.end(), frame.data.begin() + expedited_bytes);
    return frame;
  }
  CanFrame frame = answer_frame(upload_initiated | size_indicated, at);
  set_number(frame, static_cast<std::uint32_t>(bytes.size()));
  transfer_ = Upload{at, std::move(bytes)};
  return frame;
}

SdoServer::Answer SdoServer::upload_segment(const CanFrame& request) {
  auto* const upload = std::get_if<Upload>(&transfer_);
  if (upload == nullptr) {
    return end_with(SdoAbort::unknown_command);
  }
  if (has(request, toggle_bit) != upload->toggle) {
    return end_with(SdoAbort::toggle_not_alternated);
  }
  return send_segment(*upload);
}

SdoServer::Answer SdoServer::send_segment(Upload& upload) {
  const std::size_t left = upload.bytes.size() - upload.sent;
  const std::size_t length = std::min(left, segment_bytes);
  const auto unused = static_cast<unsigned>(segment_bytes - length);
  CanFrame frame =
      answer_frame(segment_sent | (upload.toggle ? toggle_bit : 0U) |
                   unused << unused_segment_shift | (length == left ? last_segment : 0U));
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
  const bool is_sized = has(request, size_indicated);
  if (!has(request, expedited)) {
    return begin_download(at, is_sized ? std::make_optional(number(request)) : std::nullopt);
  }
  Bytes bytes = expedited_data(request);
  const std::optional<SdoAbort> abort = is_sized ? download_(at.index, at.sub_index, bytes)
                                                 : download_as_much_as_fits(at, std::move(bytes));
  return abort ? abort_frame(at, *abort) : confirm_download(at);
}

std::optional<SdoAbort> SdoServer::download_as_much_as_fits(ObjectAddress at, Bytes bytes) {
  std::optional<SdoAbort> abort = download_(at.index, at.sub_index, bytes);
  while (abort == SdoAbort::value_too_long && bytes.size() > 1) {
    bytes.pop_back();
    abort = download_(at.index, at.sub_index, bytes);
  }
  return abort;
}

SdoServer::Answer SdoServer::begin_download(ObjectAddress at, std::optional<std::uint32_t> size) {
  if (size && *size > download_limit) {
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
  if (has(request, toggle_bit) != download->toggle) {
    return end_with(SdoAbort::toggle_not_alternated);
  }
  const std::size_t length = segment_length(request);
  const std::size_t new_size = download->bytes.size() + length;
  if (new_size > download->size.value_or(download_limit)) {
    return end_with(download->size ? SdoAbort::wrong_length : SdoAbort::out_of_memory);
  }
  const auto* const begin = request.data.data() + 1;
  download->bytes.insert(download->bytes.end(), begin, begin + length);
  if (has(request, last_segment)) {
    return complete_download();
  }
  download->toggle = !download->toggle;
  return answer_frame(segment_confirmed | (has(request, toggle_bit) ? toggle_bit : 0U));
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
  return answer_frame(segment_confirmed | (download.toggle ? toggle_bit : 0U));
}

SdoServer::Answer SdoServer::client_abort(const CanFrame& /*request*/) {
  reset();
  return std::nullopt;
}

SdoServer::Answer SdoServer::unknown_command(const CanFrame& request) {
  if (std::holds_alternative<std::monostate>(transfer_)) {
    return abort_frame(multiplexer(request), SdoAbort::unknown_command);
  }
  return end_with(SdoAbort::unknown_command);
}

CanFrame SdoServer::confirm_download(ObjectAddress at) const {
  return answer_frame(download_confirmed, at);
}

CanFrame SdoServer::abort_frame(ObjectAddress at, SdoAbort abort) const {
  CanFrame frame = answer_frame(aborted, at);
  set_number(frame, static_cast<std::uint32_t>(abort));
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

CanFrame SdoServer::answer_frame(unsigned command) const {
  const auto cob_id = static_cast<std::uint16_t>(sdo_answer_cob_id + node_id_);
  return {cob_id, request_length, {static_cast<std::uint8_t>(command)}};
}

CanFrame SdoServer::answer_frame(unsigned command, ObjectAddress at) const {
  CanFrame frame = answer_frame(command);
  frame.data[1] = static_cast<std::uint8_t>(at.index & 0xFFU);
  frame.data[2] = static_cast<std::uint8_t>(at.index >> 8U);
  frame.data[3] = at.sub_index;
  return frame;
}

}  // namespace velmora_can_bridge
