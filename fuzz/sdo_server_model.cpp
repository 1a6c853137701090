#include "sdo_server_model.hpp"

#include <algorithm>
#include <utility>

namespace velmora_can_bridge {
namespace {

constexpr std::uint32_t toggle_not_alternated = 0x05030000;
constexpr std::uint32_t unknown_command = 0x05040001;
constexpr std::uint32_t out_of_memory = 0x05040005;
constexpr std::uint32_t read_of_write_only = 0x06010001;
constexpr std::uint32_t write_of_read_only = 0x06010002;
constexpr std::uint32_t no_such_object = 0x06020000;
constexpr std::uint32_t wrong_length = 0x06070010;
constexpr std::uint32_t value_too_long = 0x06070012;
constexpr std::uint32_t value_too_short = 0x06070013;
constexpr std::uint32_t no_such_sub_index = 0x06090011;

// Client command specifiers: the upper three bits of a request.
constexpr unsigned download_segment = 0;
constexpr unsigned initiate_download = 1;
constexpr unsigned initiate_upload = 2;
constexpr unsigned upload_segment = 3;
constexpr unsigned abort_transfer_command = 4;

bool bit(std::uint8_t byte, unsigned number) { return (unsigned{byte} >> number & 1U) != 0; }

unsigned specifier(const CanFrame& frame) { return frame.data[0] / 32U; }

/// Of the data bytes of a segment.
unsigned segment_bytes(std::uint8_t command) { return 7U - command / 2U % 8U; }

/// Of an expedited download that tells its size.
unsigned expedited_bytes(std::uint8_t command) { return 4U - command / 4U % 4U; }

/// The bytes that a request needs for what its first byte tells.
unsigned bytes_needed(const CanFrame& request) {
  const std::uint8_t command = request.data[0];
  const bool is_sized = bit(command, 0);
  const bool is_expedited = bit(command, 1);
  switch (specifier(request)) {
    case download_segment:
      return 1 + segment_bytes(command);
    case initiate_download:
      return !is_sized ? 4 : is_expedited ? 4 + expedited_bytes(command) : 8;
    case initiate_upload:
      return 4;
    case upload_segment:
      return 1;
    default:
      return 8;
  }
}

using Frame = std::array<std::uint8_t, 8>;

Frame frame(unsigned command, std::array<std::uint8_t, 3> at, std::uint32_t number = 0) {
  Frame bytes{static_cast<std::uint8_t>(command), at[0], at[1], at[2]};
  for (unsigned position = 4; position < 8; ++position) {
    bytes[position] = static_cast<std::uint8_t>(number % 256);
    number /= 256;
  }
  return bytes;
}

Frame abort(std::array<std::uint8_t, 3> at, std::uint32_t code) { return frame(0x80, at, code); }

}  // namespace

SdoServerModel::SdoServerModel(std::vector<ModelObject> objects, std::size_t most_bytes)
    : objects_(std::move(objects)), most_bytes_(most_bytes) {}

SdoServerModel::Answer SdoServerModel::answer(const CanFrame& request) {
  if (request.length < bytes_needed(request)) {
    return std::nullopt;
  }
  const Multiplexer at{request.data[1], request.data[2], request.data[3]};
  switch (specifier(request)) {
    case download_segment:
      return next_of_download(request);
    case initiate_download:
      return begin_download(request, at);
    case initiate_upload:
      return begin_upload(at);
    case upload_segment:
      return next_of_upload(bit(request.data[0], 4));
    case abort_transfer_command:
      phase_ = Phase::idle;
      return std::nullopt;
    default:
      return phase_ == Phase::idle ? abort(at, unknown_command) : abort_transfer(unknown_command);
  }
}

SdoServerModel::Answer SdoServerModel::begin_upload(const Multiplexer& at) {
  phase_ = Phase::idle;
  const ModelObject* const found = object(at);
  if (found == nullptr) {
    return abort(at, absence(at));
  }
  if (!found->readable) {
    return abort(at, read_of_write_only);
  }
  const auto size = static_cast<std::uint32_t>(found->bytes.size());
  if (size >= 1 && size <= 4) {
    Frame answer = frame(0x43U + 4U * (4U - size), at);
    std::copy(found->bytes.begin(), found->bytes.end(), answer.begin() + 4);
    return answer;
  }
  phase_ = Phase::uploading;
  at_ = at;
  bytes_ = found->bytes;
  toggle_ = false;
  return frame(0x41, at, size);
}

SdoServerModel::Answer SdoServerModel::next_of_upload(bool toggle) {
  if (phase_ != Phase::uploading) {
    return abort_transfer(unknown_command);
  }
  if (toggle != toggle_) {
    return abort_transfer(toggle_not_alternated);
  }
  Frame answer{};
  unsigned carried = 0;
  while (carried < 7 && !bytes_.empty()) {
    answer[1 + carried++] = bytes_.front();
    bytes_.erase(bytes_.begin());
  }
  const bool is_last = bytes_.empty();
  answer[0] =
      static_cast<std::uint8_t>((toggle ? 16U : 0U) + 2U * (7U - carried) + (is_last ? 1U : 0U));
  toggle_ = !toggle_;
  if (is_last) {
    phase_ = Phase::idle;
  }
  return answer;
}

SdoServerModel::Answer SdoServerModel::begin_download(const CanFrame& request,
                                                      const Multiplexer& at) {
  phase_ = Phase::idle;
  const std::uint8_t command = request.data[0];
  const bool is_sized = bit(command, 0);
  const auto* const value = request.data.begin() + 4;
  if (bit(command, 1)) {
    return is_sized ? expedited_download({value, value + expedited_bytes(command)}, at)
                    : unsized_download({value, request.data.begin() + request.length}, at);
  }
  announced_.reset();
  if (is_sized) {
    announced_ = value[0] + 0x100ULL * value[1] + 0x10000ULL * value[2] + 0x1000000ULL * value[3];
    if (*announced_ > most_bytes_) {
      return abort(at, out_of_memory);
    }
  }
  phase_ = Phase::downloading;
  at_ = at;
  bytes_.clear();
  toggle_ = false;
  return frame(0x60, at);
}

SdoServerModel::Answer SdoServerModel::expedited_download(const Bytes& sent,
                                                          const Multiplexer& at) {
  const AbortCode code = store(at, sent);
  return code == 0 ? frame(0x60, at) : abort(at, code);
}

SdoServerModel::Answer SdoServerModel::unsized_download(Bytes sent, const Multiplexer& at) {
  // As much as the object takes, but not nothing of something.
  if (const ModelObject* const found = object(at); found != nullptr && sent.size() > 1) {
    sent.resize(std::min(sent.size(), std::max<std::size_t>(found->most, 1)));
  }
  return expedited_download(sent, at);
}

SdoServerModel::Answer SdoServerModel::next_of_download(const CanFrame& request) {
  const std::uint8_t command = request.data[0];
  if (phase_ != Phase::downloading) {
    return abort_transfer(unknown_command);
  }
  if (bit(command, 4) != toggle_) {
    return abort_transfer(toggle_not_alternated);
  }
  for (unsigned position = 1; position <= segment_bytes(command); ++position) {
    bytes_.push_back(request.data[position]);
  }
  if (announced_ && bytes_.size() > *announced_) {
    return abort_transfer(wrong_length);
  }
  if (bytes_.size() > most_bytes_) {
    return abort_transfer(out_of_memory);
  }
  if (bit(command, 0)) {
    return last_of_download();
  }
  const unsigned answered = toggle_ ? 0x30 : 0x20;
  toggle_ = !toggle_;
  return frame(answered, {});
}

SdoServerModel::Answer SdoServerModel::last_of_download() {
  if (announced_ && bytes_.size() != *announced_) {
    return abort_transfer(wrong_length);
  }
  if (const AbortCode code = store(at_, bytes_); code != 0) {
    return abort_transfer(code);
  }
  phase_ = Phase::idle;
  return frame(toggle_ ? 0x30 : 0x20, {});
}

ModelObject* SdoServerModel::object(const Multiplexer& at) {
  for (ModelObject& candidate : objects_) {
    if (candidate.index == at[0] + 256 * at[1] && candidate.sub_index == at[2]) {
      return &candidate;
    }
  }
  return nullptr;
}

SdoServerModel::AbortCode SdoServerModel::absence(const Multiplexer& at) const {
  const bool has_index = std::any_of(
      objects_.begin(), objects_.end(),
      [&](const ModelObject& candidate) { return candidate.index == at[0] + 256 * at[1]; });
  return has_index ? no_such_sub_index : no_such_object;
}

SdoServerModel::AbortCode SdoServerModel::store(const Multiplexer& at, const Bytes& bytes) {
  ModelObject* const found = object(at);
  if (found == nullptr) {
    return absence(at);
  }
  if (!found->writable) {
    return write_of_read_only;
  }
  if (bytes.size() > found->most) {
    return value_too_long;
  }
  if (bytes.size() < found->least) {
    return value_too_short;
  }
  found->bytes = bytes;
  return 0;
}

SdoServerModel::Answer SdoServerModel::abort_transfer(AbortCode code) {
  // A segment that belongs to no transfer names no object.
  const Multiplexer at = phase_ == Phase::idle ? Multiplexer{} : at_;
  phase_ = Phase::idle;
  return abort(at, code);
}

}  // namespace velmora_can_bridge
