/// The server side of SDO transfers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <variant>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Answers the requests of one SDO client: expedited and segmented transfers (CiA 301, 7.2.4.3),
/// block transfers not.
///
/// Passive: no thread, no clock, no bus. A request that breaks the protocol is answered with an
/// abort and ends the transfer under way; none can do more harm. An abort carries the multiplexer
/// of the transfer that it ends, else that of the request, and 0x0000/0 for a segment that belongs
/// to no transfer. Reserved bits of a request are not looked at. Not thread-safe.
class SdoServer {
 public:
  /// Puts an object's bytes into `data`, which arrives empty, or says why not.
  using UploadFunction = std::function<std::optional<SdoAbort>(
      std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data)>;

  /// Writes an object, or says why not; what it refuses it leaves as it was.
  using DownloadFunction = std::function<std::optional<SdoAbort>(
      std::uint16_t index, std::uint8_t sub_index, const std::vector<std::uint8_t>& data)>;

  /// The most bytes that a download may bring unless the constructor says otherwise; more are
  /// aborted with `SdoAbort::out_of_memory`.
  static constexpr std::size_t download_limit = std::size_t{1} << 20U;

  /// Both functions are called within `answer` only, and do not call the server. `most_bytes` is
  /// what a download may bring.
  SdoServer(std::uint8_t node_id, UploadFunction upload, DownloadFunction download,
            std::size_t most_bytes = download_limit);

  /// Takes a request and returns the answer, with the COB-ID 0x580 + node id.
  ///
  /// No value when nothing is to be answered: the client aborted, or the frame does not hold all
  /// that it tells. Requests of fewer than 8 bytes that do are answered as others are; an abort has
  /// 8. The request's COB-ID is not looked at.
  ///
  /// - Uploads of 1 to 4 bytes are expedited. Others go in segments of 7 bytes with their size
  ///   indicated, none at all as one empty last segment.
  /// - An expedited download without its size brings as many of its 4 bytes, or of those that its
  ///   frame has, as the object takes: when the object refuses them with `value_too_long`, fewer
  ///   are tried.
  /// - A segmented download reaches its object when its last segment has come. Objects therefore
  ///   refuse in the answer to the last segment, a size above `most_bytes` at the beginning.
  ///   More or fewer bytes than indicated are aborted with `wrong_length`.
  /// - A request that begins a transfer ends the one under way, without a word about it.
  std::optional<CanFrame> answer(const CanFrame& request);

  /// Whether a transfer of segments is under way.
  bool is_in_transfer() const { return !std::holds_alternative<std::monostate>(transfer_); }

  /// Forgets the transfer under way; its client hears nothing of it.
  void reset();

 private:
  using Answer = std::optional<CanFrame>;
  using Bytes = std::vector<std::uint8_t>;
  using Event = Answer (SdoServer::*)(const CanFrame& request);

  /// Both transfers begin with a clear toggle bit.
  struct Upload {
    ObjectAddress at;
    Bytes bytes;
    std::size_t sent = 0;
    bool toggle = false;
  };
  struct Download {
    ObjectAddress at;
    std::optional<std::uint32_t> size;
    Bytes bytes;
    bool toggle = false;
  };

  static Event event_of(const CanFrame& request);

  // One for each command that a client may send.
  Answer initiate_upload(const CanFrame& request);
  Answer initiate_download(const CanFrame& request);
  Answer upload_segment(const CanFrame& request);
  Answer download_segment(const CanFrame& request);
  Answer client_abort(const CanFrame& request);
  Answer unknown_command(const CanFrame& request);

  Answer begin_upload(ObjectAddress at);
  Answer begin_download(ObjectAddress at, std::optional<std::uint32_t> size);
  Answer send_segment(Upload& upload);
  Answer complete_download();
  std::optional<SdoAbort> download_as_much_as_fits(ObjectAddress at);

  CanFrame confirm_download(ObjectAddress at) const;
  CanFrame abort_frame(ObjectAddress at, SdoAbort abort) const;
  CanFrame end_with(SdoAbort abort);
  CanFrame answer_frame(unsigned command, ObjectAddress at = {}) const;

  const std::uint8_t node_id_;
  const UploadFunction upload_;
  const DownloadFunction download_;
  const std::size_t most_bytes_;
  std::variant<std::monostate, Upload, Download> transfer_;
  // The object's bytes within one request: kept, so that an expedited transfer allocates nothing.
  Bytes bytes_;
};

}  // namespace velmora_can_bridge
